"""Shared by the end-to-end tests: an instance with a real Dovecot, and mail clients."""
