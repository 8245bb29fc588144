"""A proofing service for one machine: HTTPS answers, FTP uploads and a gallery page, all on loopback."""
