"""The stand-in for the SDK library, and its tests."""
