"""Calls of the `openssl` command. Private keys are PKCS#8 PEM files and never read in Python."""

import subprocess

from simulator.signing.errors import SigningError

KEY_TYPES = {
    "ec": ("-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256"),
    "rsa": ("-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048"),
}


def run(*arguments, data=b""):
    """Runs `openssl` with `data` as its standard input; returns its standard output."""
    try:
        done = subprocess.run(["openssl", *map(str, arguments)], input=data, capture_output=True)
    except FileNotFoundError:
        raise SigningError("the openssl command is not installed") from None
    if done.returncode != 0:
        text = done.stderr.decode(errors="replace").strip()
        raise SigningError(f"openssl {arguments[0]} failed: {text}")
    return done.stdout


def make_key(path, key_type):
    """Writes a new private key of one of KEY_TYPES to `path`."""
    run("genpkey", *KEY_TYPES[key_type], "-out", path)


def public_key(key_path):
    """The SubjectPublicKeyInfo (DER) that belongs to a private key."""
    return run("pkey", "-in", key_path, "-pubout", "-outform", "DER")


def sign(key_path, data):
    """The signature of `data` with SHA-256: an ECDSA-Sig-Value (DER), or PKCS #1 version 1.5."""
    return run("dgst", "-sha256", "-sign", key_path, data=data)
