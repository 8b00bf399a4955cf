"""The cryptographic messages of a signature: SignedData of RFC 5652, time-stamp tokens of RFC 3161.

The two hash-agility attributes are Apple's (open `Security`: libsecurity_smime and
libsecurity_codesigning). As in Apple's own signatures, the outer layers have indefinite lengths.
"""

import dataclasses
import datetime
import hashlib
import plistlib
import secrets

from simulator.signing import blobs, der, host
from simulator.signing.identity import Identity, signature_algorithm

ID_DATA = "1.2.840.113549.1.7.1"
ID_SIGNED_DATA = "1.2.840.113549.1.7.2"
ID_TIMESTAMP_INFO = "1.2.840.113549.1.9.16.1.4"
ATTRIBUTE_CONTENT_TYPE = "1.2.840.113549.1.9.3"
ATTRIBUTE_MESSAGE_DIGEST = "1.2.840.113549.1.9.4"
ATTRIBUTE_SIGNING_TIME = "1.2.840.113549.1.9.5"
ATTRIBUTE_TIMESTAMP_TOKEN = "1.2.840.113549.1.9.16.2.14"
ATTRIBUTE_SIGNING_CERTIFICATE_2 = "1.2.840.113549.1.9.16.2.47"
ATTRIBUTE_HASH_AGILITY = "1.2.840.113635.100.9.1"
ATTRIBUTE_HASH_AGILITY_2 = "1.2.840.113635.100.9.2"
TIMESTAMP_POLICY = "1.3.6.1.4.1.55555.1.1"
SHA256 = der.sequence(der.oid("2.16.840.1.101.3.4.2.1"), der.null())


def attribute(dotted, *values):
    return der.sequence(der.oid(dotted), der.set_of(*values))


def hash_agility(directories):
    """The attribute with the first 20 octets of every cdhash, ordered by hash type."""
    hashes = [full[:20] for _, full in directory_hashes(directories)]
    return attribute(ATTRIBUTE_HASH_AGILITY, der.octet_string(plistlib.dumps({"cdhashes": hashes})))


def hash_agility_2(directories):
    """The attribute with the algorithm and the whole cdhash of every CodeDirectory."""
    return attribute(ATTRIBUTE_HASH_AGILITY_2, *(
        der.sequence(der.oid(kind.dotted), der.octet_string(full))
        for kind, full in directory_hashes(directories)))


def directory_hashes(directories):
    """The hash type and the whole cdhash of each pair of a hash name and an encoded CodeDirectory."""
    kinds = [(blobs.HASH_TYPES[name], encoding) for name, encoding in directories]
    return [(kind, kind.digest(encoding))
            for kind, encoding in sorted(kinds, key=lambda pair: pair[0].number)]


def signed_data(content, signer, certificates, attributes, *, key_type, content_type=ID_DATA,
                attached=False, timestamp=None):
    """A ContentInfo with one signer over `content`.

    `signer` and `certificates` are identity.Certificate; `attributes` are encodings to which the
    content type and the message digest are added. `timestamp` makes a token for the signature.
    """
    signed = sorted([
        attribute(ATTRIBUTE_CONTENT_TYPE, der.oid(content_type)),
        attribute(ATTRIBUTE_MESSAGE_DIGEST, der.octet_string(hashlib.sha256(content).digest())),
        *attributes,
    ])
    signature = host.sign_digest(signer.key_path, der.element(0x31, *signed))
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


@dataclasses.dataclass(frozen=True)
class Timestamp:
    """How a signature is time-stamped.

    `time` is an aware datetime; None is now. `authority` is the identity whose "timestamp"
    certificate signs the token; None is the signer's own, under the same root.
    """

    time: datetime.datetime | None = None
    authority: Identity | None = None

    def token(self, signature):
        """Returns a token (ContentInfo) for the octets of a signature. Needs an authority."""
        when = self.time or datetime.datetime.now(datetime.timezone.utc)
        certificates = self.authority.certificates
        signer = certificates["timestamp"]
        imprint = der.sequence(SHA256, der.octet_string(hashlib.sha256(signature).digest()))
        information = der.sequence(
            der.integer(1),
            der.oid(TIMESTAMP_POLICY),
            imprint,
            der.integer(secrets.randbits(62)),
            der.generalized_time(when))
        reference = der.sequence(der.octet_string(hashlib.sha256(signer.der).digest()))
        attributes = [
            attribute(ATTRIBUTE_SIGNING_TIME, der.time(when)),
            attribute(ATTRIBUTE_SIGNING_CERTIFICATE_2, der.sequence(der.sequence(reference))),
        ]
        return signed_data(
            information, signer, [signer, certificates["root"]], attributes,
            key_type=self.authority.profile.key_type, content_type=ID_TIMESTAMP_INFO, attached=True)
