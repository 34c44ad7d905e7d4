#!/usr/bin/env python3
"""Gives each face of a gallery event (JSON on standard input) a name.

Prints one line for each face, from the top of the picture to the bottom: number, name, place.
"""
import json
import sys

NAMES = ("Walter Ada Ben Cleo Dario Elsa Finn Greta Hugo Ida Jonas Kira Leo Mona Nils Olga Paul Quinn "
         "Rosa Sven Tilda Udo Vera Wim Xenia Yann Zoe").split()

faces = json.load(sys.stdin).get("galleries", [])
faces.sort(key=lambda face: (face["y"], face["x"]))
for place, face in enumerate(faces):
    name = NAMES[place] if place < len(NAMES) else "Student%d" % (place + 1)
    print(face["gid"], name, "at %(x)d,%(y)d %(width)dx%(height)d" % face)
