"""The cryptographic messages of a signature: SignedData of RFC 5652.

The two hash-agility attributes are Apple's (open `Security`: libsecurity_smime and
libsecurity_codesigning). As in Apple's own signatures, the outer layers have indefinite lengths.
"""

import hashlib
import plistlib

from simulator.signing import blobs, der, openssl
from simulator.signing.identity import signature_algorithm

ID_DATA = "1.2.840.113549.1.7.1"
ID_SIGNED_DATA = "1.2.840.113549.1.7.2"
ATTRIBUTE_CONTENT_TYPE = "1.2.840.113549.1.9.3"
ATTRIBUTE_MESSAGE_DIGEST = "1.2.840.113549.1.9.4"
ATTRIBUTE_SIGNING_TIME = "1.2.840.113549.1.9.5"
ATTRIBUTE_TIMESTAMP_TOKEN = "1.2.840.113549.1.9.16.2.14"
ATTRIBUTE_HASH_AGILITY = "1.2.840.113635.100.9.1"
ATTRIBUTE_HASH_AGILITY_2 = "1.2.840.113635.100.9.2"
SHA256 = der.sequence(der.oid("2.16.840.1.101.3.4.2.1"), der.null())


def attribute(dotted, *values):
    return der.sequence(der.oid(dotted), der.set_of(*values))


def hash_agility(directories):
    """The attribute with the cdhashes of all CodeDirectories, as directory_hashes() takes them.

    The hashes, 20 octets each, stand in the order of their hash types' numbers.
    """
    hashes = [full[:20] for _, full in directory_hashes(directories)]
    return attribute(ATTRIBUTE_HASH_AGILITY, der.octet_string(plistlib.dumps({"cdhashes": hashes})))


def hash_agility_2(directories):
    """The attribute with the algorithm and the whole cdhash of every CodeDirectory."""
    return attribute(ATTRIBUTE_HASH_AGILITY_2, *(
        der.sequence(der.oid(kind.dotted), der.octet_string(full))
        for kind, full in directory_hashes(directories)))


def directory_hashes(directories):
    """The hash type and the whole cdhash of each (hash name, encoded CodeDirectory) pair."""
    kinds = [(blobs.HASH_TYPES[name], encoding) for name, encoding in directories]
    return [(kind, kind.digest(encoding))
            for kind, encoding in sorted(kinds, key=lambda pair: pair[0].number)]


def signed_data(content, signer, certificates, attributes, *, key_type, content_type=ID_DATA,
                attached=False, timestamp=None):
    """A ContentInfo with one signer over `content`.

    `signer` and `certificates` are identity.Certificate; `attributes` are finished encodings, to
    which the content type and the message digest are added. `timestamp`, when there is one, makes a
    token for the octets of the signature.
    """
    signed = sorted([
        attribute(ATTRIBUTE_CONTENT_TYPE, der.oid(content_type)),
        attribute(ATTRIBUTE_MESSAGE_DIGEST, der.octet_string(hashlib.sha256(content).digest())),
        *attributes,
    ])
    signature = openssl.sign(signer.key_path, der.element(0x31, *signed))
    unsigned = []
    if timestamp is not None:
        token = attribute(ATTRIBUTE_TIMESTAMP_TOKEN, timestamp(signature))
        unsigned.append(der.explicit(1, token))
    signer_info = der.sequence(
        der.integer(1),
        der.sequence(signer.issuer, signer.serial_number),
        SHA256,
        der.explicit(0, *signed),
        signature_algorithm(key_type),
        der.octet_string(signature),
        *unsigned)
    payload = [der.explicit(0, der.octet_string(content))] if attached else []
    return der.indefinite(
        0x30,
        der.oid(ID_SIGNED_DATA),
        der.indefinite(
            0xA0,
            der.indefinite(
                0x30,
                der.integer(1 if content_type == ID_DATA else 3),
                der.set_of(SHA256),
                der.sequence(der.oid(content_type), *payload),
                der.explicit(0, *(certificate.der for certificate in certificates)),
                der.set_of(signer_info))))
