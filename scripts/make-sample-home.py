#!/usr/bin/env python3
"""Makes a small home folder to try Kelvane on: documents, pictures, music, mail and a project, the same every time.

    scripts/make-sample-home.py DIR

What stands there already stays as it is, so that changes made while trying are not lost.
"""

import os
import pathlib
import random
import struct
import sys
import zlib

WORDS = ("the garden", "a letter", "in spring", "our house", "remains", "was found", "under", "the old table", "quietly",
         "before noon", "and then", "nobody", "had asked", "for more", "than this", "at last")


def text(chance, lines):
    return "\n".join(" ".join(chance.choices(WORDS, k=chance.randint(4, 9))).capitalize() + "." for _ in range(lines))


def table(chance, rows):
    return "date,what,amount\n" + "".join(
        f"2024-{chance.randint(1, 12):02}-{chance.randint(1, 28):02},{chance.choice(WORDS)},{chance.uniform(1, 900):.2f}\n"
        for _ in range(rows))


def picture(chance, width, height):
    """Returns a PNG with some noise, so that it has the size of a small photograph."""
    base = [chance.randint(40, 200) for _ in range(3)]
    rows = bytearray()
    for y in range(height):
        rows.append(0)
        for x in range(width):
            grain = chance.getrandbits(3)
            rows.extend(min(255, base[c] + (x * (c + 1) + y * (3 - c)) // 24 + grain) for c in range(3))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(rows), 1)) + chunk(b"IEND", b"")


def sound(chance, seconds):
    samples = bytes(chance.getrandbits(7) + 64 for _ in range(8000 * seconds))
    return (b"RIFF" + struct.pack("<I", 36 + len(samples)) + b"WAVEfmt " +
            struct.pack("<IHHIIHH", 16, 1, 1, 8000, 8000, 1, 8) + b"data" + struct.pack("<I", len(samples)) + samples)


def contents(chance):
    """Yields each file's path and a function that returns its bytes."""
    for year in (2022, 2023, 2024):
        for month in ("January", "April", "July", "October"):
            yield f"Documents/Letters/{year}/{month}.txt", lambda: text(chance, 40)
        yield f"Documents/Taxes/{year}/income.csv", lambda: table(chance, 400)
        yield f"Documents/Taxes/{year}/spending.csv", lambda: table(chance, 1500)
    for place in ("Lake", "Mountains", "Grandmother's 80th", "Zürich & Genève"):
        for number in range(1, 9):
            yield f"Pictures/{place}/IMG_{number:04}.png", lambda: picture(chance, 160, 120)
    for number in range(1, 7):
        yield f"Music/Lessons/Lesson {number}.wav", lambda: sound(chance, 20)
    for number in range(1, 25):
        yield f"Mail/Inbox/{number:05}.eml", lambda: f"Subject: {chance.choice(WORDS)}\n\n{text(chance, 15)}"
    for part in ("src", "src/model", "src/view", "tests", "docs/notes"):
        for number in range(1, 7):
            yield f"Projects/weather/{part}/part{number}.py", lambda: f'"""{text(chance, 3)}"""\n' * 20
    yield "Documents/why [this]*?.txt", lambda: text(chance, 3)
    yield "Desktop/Shopping.txt", lambda: "bread\nmilk\n"
    yield ".config/editor/settings.ini", lambda: "[view]\nfont=Mono 11\n"
    yield ".cache/thumbnails/1.png", lambda: picture(chance, 32, 32)


def main():
    home = pathlib.Path(sys.argv[1])
    if home.exists() and any(home.iterdir()):
        return
    chance = random.Random(1)
    for path, make in contents(chance):
        data = make()
        file = home / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(data if isinstance(data, bytes) else data.encode())
    (home / "Documents/Empty folder").mkdir()
    os.symlink("Documents/Letters/2024/July.txt", home / "Last letter")


main()
