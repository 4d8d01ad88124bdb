"""File names that a file system may contain."""

import string

LONGEST = 255  # bytes

COLLIDING = [  # Each set is one name for a program that treats names as text.
    [b"same\xff", b"same\xfe", "same\ufffd".encode(), b"same\\xff", b"same%FF"],
    ["caf\u00e9".encode(), "cafe\u0301".encode(), b"caf\xe9"],
    [b"line\nbreak", b"line\\nbreak", b"line\\x0abreak"],
    [b"Case", b"case"],
    [b"\xed\xa0\x80", b"\xed\xb0\x80", b"\xf0\x80\x80\x80"],
    [b"trail", b"trail ", b"trail."],
    [b"dots..", b"...", b".. "],
]
PATTERNS = [b"*", b"**", b"?", b"[a]", b"a", b"[!a]", b"x [y]*?.txt", b"back\\slash", b"\\", b"{a,b}", b"$HOME", b"~",
            b"!x", b"-dash", b"--help", b"#x", b"%s%n", b"quote\"'", b"&;|<>", b"@eaDir"]
MARKS = [b"Icon\r", b"CON", b".hidden", b"lost+found.d", b"\x01\x02\x7f", b"tab\there", b"\xe2\x80\xae rtl",
         b"\xf0\x9f\x92\xbe", b"\xef\xbb\xbfbom", b"nul\\0", b"a" * LONGEST, b"\xff" * LONGEST,
         "\u20ac".encode() * 85, b"\n" * 40, b'{"message_type":"error"}', b"Fatal: wrong password or no key found"]
LETTERS = (string.ascii_letters + string.digits + " _-.").encode()


def plain(chance):
    return bytes(chance.choice(LETTERS[:62]) for _ in range(chance.randint(3, 10)))


def odd(chance):
    kind = chance.randrange(6)
    if kind == 0:
        return chance.choice(chance.choice(COLLIDING))
    if kind == 1:
        return chance.choice(PATTERNS)
    if kind == 2:
        return chance.choice(MARKS)
    length = chance.choice([1, 2, 5, 20, 100, LONGEST])
    if kind == 3:
        allowed = [byte for byte in range(1, 256) if byte != ord("/")]
        name = bytes(chance.choice(allowed) for _ in range(length))
    elif kind == 4:
        text = "".join(chr(chance.choice([0x41, 0xE9, 0x301, 0x3B1, 0x5D0, 0xFFFD, 0x1F4BE])) for _ in range(length))
        name = text.encode()[:LONGEST]
    else:
        name = bytes(chance.choice(b"*?[]\\!a.\n") for _ in range(min(length, 20)))
    return name if name not in (b".", b"..") else b"..."


def colliding(chance):
    """Returns several names that must remain distinct."""
    return list(chance.choice(COLLIDING))
