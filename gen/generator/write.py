"""Writes the generated files."""

from pathlib import Path


def write_changed(folder, files):
    """Writes every text whose file does not hold it already, so that what depends on the others is not built again."""
    for name, text in files.items():
        path = Path(folder) / name
        content = text.encode("utf-8")
        if path.exists() and path.read_bytes() == content:
            continue
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
