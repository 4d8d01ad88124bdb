"""Damages files. Each function returns a description of the damage."""


def flip(path, chance):
    data = bytearray(path.read_bytes())
    if not data:
        data = bytearray(b"\0")
    for _ in range(chance.choice([1, 1, 20])):
        data[chance.randrange(len(data))] ^= 1 << chance.randrange(8)
    path.write_bytes(data)
    return "has other bits"


def cut(path, chance):
    data = path.read_bytes()
    path.write_bytes(data[:chance.randrange(len(data) + 1)])
    return "is cut"


def drop(path, chance):
    del chance
    path.unlink()
    return "is deleted"


def empty(path, chance):
    del chance
    path.write_bytes(b"")
    return "is empty"


def garble(path, chance):
    path.write_bytes(chance.randbytes(chance.choice([1, 100, 5000])))
    return "is garbage"


def zero(path, chance):
    del chance
    path.write_bytes(bytes(path.stat().st_size))
    return "is all zeros"


def block(path, chance):
    del chance
    path.unlink()
    path.mkdir()
    return "is a folder"


def spoil(path, chance):
    return chance.choice([flip, cut, drop, empty, garble, zero, block])(path, chance)
