"""What signing needs from the host: whole files, and the `openssl` command for all cryptography.

Private keys are PKCS#8 PEM files and are never read in Python.
"""

import contextlib
import mmap
import os
import pathlib
import subprocess

KEY_TYPES = {
    "ec": ("-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256"),
    "rsa": ("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048"),
}


class SigningError(Exception):
    """Something could not be signed. The text says what and why."""


@contextlib.contextmanager
def contents(path):
    """Maps a file into memory for as long as the context lasts."""
    try:
        with open(path, "rb") as file:
            if os.fstat(file.fileno()).st_size == 0:
                yield b""
                return
            with mmap.mmap(file.fileno(), 0, access=mmap.ACCESS_READ) as mapped:
                with memoryview(mapped) as view:
                    yield view
    except OSError as error:
        raise SigningError(f"cannot read {path}: {error.strerror}") from error


def read(path):
    with contents(path) as data:
        return bytes(data)


def write(path, data):
    try:
        pathlib.Path(path).write_bytes(data)
    except OSError as error:
        raise SigningError(f"cannot write {path}: {error.strerror}") from error


def make_key(path, key_type):
    """Writes a new private key of one of KEY_TYPES to `path`."""
    _openssl("genpkey", *KEY_TYPES[key_type], "-out", path)


def public_key(key_path):
    """Returns the SubjectPublicKeyInfo (DER) of a private key."""
    return _openssl("pkey", "-in", key_path, "-pubout", "-outform", "DER")


def sign_digest(key_path, data):
    """Signs the SHA-256 of `data`: an ECDSA-Sig-Value (DER), or PKCS #1 version 1.5."""
    return _openssl("dgst", "-sha256", "-sign", key_path, data=data)


def _openssl(*arguments, data=b""):
    try:
        done = subprocess.run(["openssl", *map(str, arguments)], input=data, capture_output=True)
    except FileNotFoundError:
        raise SigningError("the openssl command is not installed") from None
    if done.returncode != 0:
        text = done.stderr.decode(errors="replace").strip()
        raise SigningError(f"openssl {arguments[0]} failed: {text}")
    return done.stdout
