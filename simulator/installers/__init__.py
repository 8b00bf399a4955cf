"""Stand-ins for the system's installer tools, and the media that they install the product from."""
