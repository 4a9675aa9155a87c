"""Certificates for tests of TLS."""

import os
import subprocess


def self_signed(directory, name, *options):
    """Makes NAME.pem, a certificate that is its own authority, and NAME.key. Returns the two."""
    certificate, key = (os.path.join(directory, f"{name}.{kind}") for kind in ("pem", "key"))
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "2",
                    "-subj", f"/CN={name}", "-keyout", key, "-out", certificate, *options],
                   check=True, capture_output=True)
    return certificate, key


def for_localhost(directory, name):
    return self_signed(directory, name, "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1")
