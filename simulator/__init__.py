"""The simulated endpoint: what stands in for the product and its platform on a developer's machine."""
