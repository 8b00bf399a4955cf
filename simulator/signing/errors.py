"""The one exception of the signer."""


class SigningError(Exception):
    """Something could not be signed; the text says what and why, and is fit for the user."""
