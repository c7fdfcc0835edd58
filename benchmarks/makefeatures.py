#!/usr/bin/env python3
"""Writes a country of seeded features: parcels, pieces of roads, places, and some long rivers.
   makefeatures.py FILE.geojsons [COUNT, 2000000]"""
import math, random, sys

path, count = sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 2_000_000
random.seed(4711)
west, south, width, height = 80.0, 25.0, 10.0, 5.0
metre = 1e-5  # in degrees, about


def line(x, y, pieces, step, direction):
    places = []
    for _ in range(pieces + 1):
        places.append(f"[{x:.7f},{y:.7f}]")
        direction += random.uniform(-0.5, 0.5)
        x += step * math.cos(direction)
        y += step * math.sin(direction)
    return '"LineString","coordinates":[' + ",".join(places) + "]"


def parcel(x, y):
    corners = random.randint(4, 8)
    size = random.uniform(10, 40) * metre
    places = [f"[{x + size * math.cos(a):.7f},{y + size * math.sin(a):.7f}]"
              for a in (2 * math.pi * i / corners for i in range(corners))]
    return '"Polygon","coordinates":[[' + ",".join(places + places[:1]) + "]]"


with open(path, "w") as out:
    for i in range(count):
        x, y = west + width * random.random(), south + height * random.random()
        if i % 10000 == 0:
            kind, geometry = "river", line(x, y, 20000, 20 * metre, random.uniform(0, 6))
        elif i % 5 < 2:
            kind, geometry = "road", line(x, y, random.randint(1, 11), 25 * metre, random.uniform(0, 6))
        elif i % 5 < 4:
            kind, geometry = "parcel", parcel(x, y)
        else:
            kind, geometry = "place", f'"Point","coordinates":[{x:.7f},{y:.7f}]'
        out.write('{"type":"Feature","properties":{"name":"%s %d","kind":"%s","number":%d},"geometry":{"type":%s}}\n'
                  % (kind, i, kind, i, geometry))
