#!/usr/bin/env python3
"""Fails when a text of the viewer misses in a translation, or a translation is of a text that is gone.

  translations.py LUPDATE FOLDER   with the folder of the viewer's sources
"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree


def faults(lupdate, sources, file, options):
    """The texts of a translation that are not finished, once it knows all of today's."""
    with tempfile.TemporaryDirectory() as home:
        copy = shutil.copy(file, home)
        subprocess.run([lupdate, "-silent", *options, *sources, "-ts", copy], check=True, stderr=subprocess.DEVNULL)
        for message in xml.etree.ElementTree.parse(copy).iter("message"):
            translation = message.find("translation")
            texts = [form.text for form in translation] or [translation.text]
            if translation.get("type") or not all(texts):
                yield f"{file.name}: {translation.get('type', 'empty')}: {message.findtext('source')}"


def main():
    lupdate, folder = sys.argv[1], pathlib.Path(sys.argv[2])
    sources = sorted(str(file) for kind in ("*.cpp", "*.h") for file in folder.glob(kind))
    # English is what stands in the sources; its file holds the plurals.
    found = list(faults(lupdate, sources, folder / "translations/classview_zh.ts", []))
    found += faults(lupdate, sources, folder / "translations/classview_en.ts", ["-pluralonly"])
    print("\n".join(found) or "all texts are translated")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
