"""Makes restic repositories whose key opens at once, and writes restic's locks.

restic spends three seconds on making a repository and half a second of each call on scrypt, whose parameters stand in
the key file. Here they are the smallest ones that restic takes.
"""

import base64
import hashlib
import json
import os

NONCE = 16  # Bytes before the ciphertext.
TAG = 16  # Bytes after the ciphertext.
# An irreducible polynomial: files are split where the rolling hash modulo it ends in zeros.
POLYNOMIAL = "2cfc99ffec067f"
CREATED = "2020-01-01T00:00:00Z"


def _make_tables():
    sbox, power, inverse = [0] * 256, 1, 1
    while True:
        power ^= (power << 1) ^ (0x1B if power & 0x80 else 0)
        power &= 0xFF
        inverse ^= inverse << 1
        inverse ^= inverse << 2
        inverse ^= inverse << 4
        inverse &= 0xFF
        inverse ^= 0x09 if inverse & 0x80 else 0
        rotated = [((inverse << count) | (inverse >> (8 - count))) & 0xFF for count in range(5)]
        sbox[power] = rotated[0] ^ rotated[1] ^ rotated[2] ^ rotated[3] ^ rotated[4] ^ 0x63
        if power == 1:
            break
    sbox[0] = 0x63
    return sbox


_SBOX = _make_tables()


def _doubled(byte):
    return ((byte << 1) ^ (0x1B if byte & 0x80 else 0)) & 0xFF


def _round_keys(key):
    words = [list(key[at:at + 4]) for at in range(0, len(key), 4)]
    count, constant = len(words), 1
    for number in range(count, 4 * (count + 7)):
        word = list(words[-1])
        if number % count == 0:
            word = [_SBOX[byte] for byte in word[1:] + word[:1]]
            word[0] ^= constant
            constant = _doubled(constant)
        elif count > 6 and number % count == 4:
            word = [_SBOX[byte] for byte in word]
        words.append([a ^ b for a, b in zip(words[number - count], word)])
    return [sum(words[at:at + 4], []) for at in range(0, len(words), 4)]


def _mixed(column):
    a, b, c, d = column
    whole = a ^ b ^ c ^ d
    return [a ^ whole ^ _doubled(a ^ b), b ^ whole ^ _doubled(b ^ c), c ^ whole ^ _doubled(c ^ d),
            d ^ whole ^ _doubled(d ^ a)]


def encrypt_block(key, block):
    """AES with a key of 16 or 32 bytes."""
    keys = _round_keys(key)
    state = [a ^ b for a, b in zip(block, keys[0])]
    for number, round_key in enumerate(keys[1:], 1):
        state = [_SBOX[state[(4 * (at // 4 + at % 4) + at % 4) % 16]] for at in range(16)]
        if number < len(keys) - 1:
            state = sum((_mixed(state[at:at + 4]) for at in range(0, 16, 4)), [])
        state = [a ^ b for a, b in zip(state, round_key)]
    return bytes(state)


def _with_stream(key, nonce, text):
    counter, out = int.from_bytes(nonce, "big"), bytearray()
    for at in range(0, len(text), 16):
        stream = encrypt_block(key, ((counter + at // 16) % (1 << 128)).to_bytes(16, "big"))
        out += bytes(a ^ b for a, b in zip(text[at:at + 16], stream))
    return bytes(out)


def _tag(mac_key, nonce, text):
    """Poly1305 with the one-time pad that AES makes of the nonce."""
    k, r = mac_key
    r = int.from_bytes(r, "little") & 0x0FFFFFFC0FFFFFFC0FFFFFFC0FFFFFFF
    total = 0
    for at in range(0, len(text), 16):
        total = (total + int.from_bytes(text[at:at + 16] + b"\x01", "little")) * r % ((1 << 130) - 5)
    return ((total + int.from_bytes(encrypt_block(k, nonce), "little")) % (1 << 128)).to_bytes(16, "little")


class Key:
    """A key of restic: `encrypt` for the cipher, `mac` (k and r) for the tag."""

    def __init__(self, encrypt, mac):
        self.encrypt, self.mac = encrypt, mac

    def seal(self, text):
        nonce = os.urandom(NONCE)
        sealed = _with_stream(self.encrypt, nonce, text)
        return nonce + sealed + _tag(self.mac, nonce, sealed)

    def open(self, data):
        nonce, sealed, tag = data[:NONCE], data[NONCE:-TAG], data[-TAG:]
        if _tag(self.mac, nonce, sealed) != tag:
            raise ValueError("wrong key, or damaged")
        return _with_stream(self.encrypt, nonce, sealed)


def _key_for(password, parameters):
    derived = hashlib.scrypt(password, salt=base64.b64decode(parameters["salt"]), n=parameters["N"],
                             r=parameters["r"], p=parameters["p"], maxmem=1 << 30, dklen=64)
    return Key(derived[:32], (derived[32:48], derived[48:]))


def _text(data):
    return base64.b64encode(data).decode()


def _write_under_hash(folder, data):
    path = folder / hashlib.sha256(data).hexdigest()
    path.write_bytes(data)
    return path


def create(repository, password):
    """Creates an empty repository in a folder, and returns its master key."""
    for name in ("index", "keys", "locks", "snapshots", *(f"data/{number:02x}" for number in range(256))):
        (repository / name).mkdir(mode=0o700, parents=True, exist_ok=True)
    encrypt, k, r = os.urandom(32), os.urandom(16), os.urandom(16)
    master = Key(encrypt, (k, r))
    parameters = {"created": CREATED, "username": "", "hostname": "", "kdf": "scrypt", "N": 2, "r": 1, "p": 1,
                  "salt": _text(os.urandom(64))}
    secret = {"mac": {"k": _text(k), "r": _text(r)}, "encrypt": _text(encrypt)}
    parameters["data"] = _text(_key_for(password, parameters).seal(json.dumps(secret).encode()))
    _write_under_hash(repository / "keys", json.dumps(parameters).encode())
    config = {"version": 2, "id": os.urandom(32).hex(), "chunker_polynomial": POLYNOMIAL}
    (repository / "config").write_bytes(master.seal(json.dumps(config).encode()))
    return master


def write_lock(repository, key, lock):
    """Writes a lock like another restic; returns the path."""
    return _write_under_hash(repository / "locks", key.seal(json.dumps(lock).encode()))
