"""Regenerates the initial inputs of the signature fuzzers with the simulator's signer.

Run from the project's root directory: python3 fuzz/make_signature_corpus.py
"""

import pathlib
import struct
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT))

from simulator.signing import Identity, Timestamp, blobs, sign_file, sign_macho  # noqa: E402
from simulator.signing.macho import Slice, build_fat, build_thin  # noqa: E402

SMALL = {"code_size": 600, "file_type": "bundle"}

MACHO = {
    "arm64": (build_thin(Slice("arm64", info_plist=b"<plist><dict/></plist>", **SMALL)), {}),
    "universal": (build_fat([Slice("i386", **SMALL), Slice("ppc", **SMALL)], align=12),
                  {"adhoc": True}),
    "hidden_arm64": (build_fat([Slice("i386", **SMALL), Slice("arm64", **SMALL)], align=12,
                               hidden_arm64=True), {"adhoc": True}),
}

PLAIN = {
    "plain_two_hashes": {"hashes": ("sha1", "sha256")},
    "plain_one_page": {"page_size": 0, "adhoc": True},
}

CMS = {
    "hash_agility": {"hashes": ("sha1", "sha256", "sha384")},
    "timestamp": {"timestamp": Timestamp()},
}


def main():
    corpus = ROOT / "fuzz" / "corpus"
    with tempfile.TemporaryDirectory() as directory:
        path = pathlib.Path(directory) / "code"
        sidecar = path.with_name("code.codesignature")
        identity = Identity.create(pathlib.Path(directory) / "identity", key_type="ec")
        for name, (data, options) in MACHO.items():
            path.write_bytes(data)
            sign_macho(path, identity, **options)
            (corpus / "macho_signature" / name).write_bytes(path.read_bytes())
        for name, options in PLAIN.items():
            path.write_bytes(b"code" * 100)
            sign_file(path, identity, **options)
            (corpus / "macho_signature" / name).write_bytes(sidecar.read_bytes())
        for name, options in CMS.items():
            path.write_bytes(b"code" * 100)
            sign_file(path, identity, **options)
            found = blobs.split_super_blob(sidecar.read_bytes())
            (corpus / "cms" / name).write_bytes(
                struct.pack(">H", len(found[0])) + found[0] + found[blobs.SLOT_CMS][8:])


if __name__ == "__main__":
    main()
