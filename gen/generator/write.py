"""Writes the generated files."""

from pathlib import Path


def write_changed(folder, files):
    """Writes each file whose content changes, so that nothing that depends on the others is built again."""
    for name, text in files.items():
        path = Path(folder) / name
        content = text.encode("utf-8")
        if path.exists() and path.read_bytes() == content:
            continue
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
