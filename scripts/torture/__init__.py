"""Parts of scripts/torture.py."""
