"""What the parts found, kept and shown."""
