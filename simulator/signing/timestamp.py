"""Timestamp tokens of RFC 3161, made on the spot by a made-up authority."""

import dataclasses
import datetime
import hashlib
import secrets

from simulator.signing import cms, der
from simulator.signing.identity import Identity

ID_TIMESTAMP_INFO = "1.2.840.113549.1.9.16.1.4"
ATTRIBUTE_SIGNING_CERTIFICATE_2 = "1.2.840.113549.1.9.16.2.47"
POLICY = "1.3.6.1.4.1.55555.1.1"


@dataclasses.dataclass(frozen=True)
class Timestamp:
    """How a signature is timestamped.

    `time` is an aware datetime, now when it is None. `authority` is the identity whose timestamp
    certificate signs the token; None is the signer's own, which ends in the same root.
    """

    time: datetime.datetime | None = None
    authority: Identity | None = None

    def token(self, signature):
        """A token (ContentInfo) for the octets of a signature; needs an authority."""
        when = self.time or datetime.datetime.now(datetime.timezone.utc)
        certificates = self.authority.certificates
        signer = certificates["timestamp"]
        imprint = der.sequence(cms.SHA256, der.octet_string(hashlib.sha256(signature).digest()))
        information = der.sequence(
            der.integer(1),
            der.oid(POLICY),
            imprint,
            der.integer(secrets.randbits(62)),
            der.generalized_time(when))
        reference = der.sequence(der.octet_string(hashlib.sha256(signer.der).digest()))
        attributes = [
            cms.attribute(cms.ATTRIBUTE_SIGNING_TIME, der.time(when)),
            cms.attribute(ATTRIBUTE_SIGNING_CERTIFICATE_2, der.sequence(der.sequence(reference))),
        ]
        return cms.signed_data(
            information, signer, [signer, certificates["root"]], attributes,
            key_type=self.authority.profile.key_type, content_type=ID_TIMESTAMP_INFO, attached=True)
