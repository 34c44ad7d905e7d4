#!/usr/bin/env python3
"""Makes the folders that measure_recognisers runs on.

    sets.py choosing PHOTOGRAPHS TARGET   from the Debian package opencv-doc, unpacked: numbers were chosen on these
    sets.py measuring TARGET              from the Debian source package dlib, fetched by name: nothing is chosen here

The two are never mixed. TARGET must not exist yet; delete the measuring one when its figures have been read.
"""
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as xml
from pathlib import Path

HERE = Path(__file__).resolve().parent


def lines(name):
    for line in (HERE / name).read_text().splitlines():
        if line and not line.startswith("#"):
            yield line.split()


def write_marks(photograph, marks):
    Path(f"{photograph}.txt").write_text("".join(" ".join(map(str, mark)) + "\n" for mark in marks))


def choosing(photographs, target):
    """The faces of faces.txt, each cut out with its panel, as several share a picture; nofaces.txt as it is."""
    (target / "room").mkdir(parents=True)
    for person, kind, name, x, y, width, height, *eyes in lines("faces.txt"):
        copy = target / "room" / f"{person}.png"
        subprocess.run(["ffmpeg", "-v", "error", "-i", photographs / name, "-vf", f"crop={width}:{height}:{x}:{y}", copy],
                       check=True)
        moved = [float(value) - float(corner) for value, corner in zip(eyes, (x, y, x, y))]
        write_marks(copy, [[*moved, person, "turned" if kind == "turned" else "front"]])
    (target / "empty").mkdir()
    for name, in lines("nofaces.txt"):
        shutil.copy(photographs / name, target / "empty" / name.replace("/", "-"))


def source_package(name, folder):
    """Unpacks a Debian source package, through lists of its own, as a machine's rarely have sources in them."""
    entries = subprocess.run(["apt-get", "indextargets", "--format", "deb-src $(REPO_URI) $(RELEASE) $(COMPONENT)",
                              "Created-By: Packages"], check=True, capture_output=True, text=True).stdout
    (folder / "sources.list").write_text(entries)
    (folder / "lists").mkdir()
    (folder / "source").mkdir()
    options = ["-q", "-o", f"Dir::Etc::SourceList={folder}/sources.list", "-o", "Dir::Etc::SourceParts=-",
               "-o", f"Dir::State::Lists={folder}/lists", "-o", "APT::Sandbox::User=root"]
    subprocess.run(["apt-get", *options, "update"], check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["apt-get", *options, "source", "--download-only", name], cwd=folder / "source", check=True,
                   stdout=subprocess.DEVNULL)
    archive = next((folder / "source").glob("*.orig.tar.*"))
    subprocess.run(["tar", "xf", archive, "-C", folder / "source", "--wildcards", "*/examples/johns/*",
                    "*/examples/faces/*"], check=True)
    return next((folder / "source").glob("*/examples"))


def eyes_and_kind(box):
    """Eyes, and whether the face is turned: the nose then lies beside the middle between the eyes."""
    points = {int(part.get("name")): (float(part.get("x")), float(part.get("y"))) for part in box.findall("part")}
    mean = lambda first, last: [sum(points[i][axis] for i in range(first, last)) / (last - first) for axis in (0, 1)]
    left, right = mean(36, 42), mean(42, 48)
    across = [right[0] - left[0], right[1] - left[1]]
    length = (across[0] ** 2 + across[1] ** 2) ** 0.5
    nose = [points[30][axis] - (left[axis] + right[axis]) / 2 for axis in (0, 1)]
    beside = abs(nose[0] * across[0] + nose[1] * across[1]) / length ** 2
    tilted = abs(across[1]) > 0.27 * abs(across[0])
    return [round(value, 1) for value in left + right], "turned" if beside > 0.2 or tilted else "front"


def measuring(target):
    with tempfile.TemporaryDirectory() as temporary:
        examples = source_package("dlib", Path(temporary))
        for person in sorted((examples / "johns").iterdir()):
            if person.is_dir():
                shutil.copytree(person, target / "people" / re.sub(r"\W", "-", person.name))
        (target / "room").mkdir(parents=True)
        seen = set()
        for name in ("training_with_face_landmarks.xml", "testing_with_face_landmarks.xml"):
            for image in xml.parse(examples / "faces" / name).getroot().iter("image"):
                file = image.get("file")
                if file in seen:
                    continue
                seen.add(file)
                marks = []
                for number, box in enumerate(image.findall("box")):
                    eyes, kind = eyes_and_kind(box)
                    marks.append([*eyes, f"{Path(file).stem}-{number}", kind])
                copy = target / "room" / Path(file).name
                shutil.copy(examples / "faces" / file, copy)
                write_marks(copy, marks)


def main():
    arguments = sys.argv[1:]
    if len(arguments) == 3 and arguments[0] == "choosing":
        work = lambda target: choosing(Path(arguments[1]), target)
    elif len(arguments) == 2 and arguments[0] == "measuring":
        work = measuring
    else:
        sys.exit(__doc__)
    target = Path(arguments[-1])
    if target.exists():
        sys.exit(f"{target} exists already")
    work(target)


if __name__ == "__main__":
    main()
