"""What the parts share."""
