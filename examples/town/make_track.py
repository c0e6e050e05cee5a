#!/usr/bin/env python3
"""Writes track.gpx: ten minutes on foot through the middle of an invented town, as a phone would record them.

The same file on every run and every machine: the only chance comes from a seeded generator. Run it in any folder:

    python3 examples/town/make_track.py
"""

import datetime
import math
import pathlib
import random

ORIGIN = (53.2, -0.6)  # latitude and longitude of the town's well
METRES_PER_DEGREE = 111_320.0
START = datetime.datetime(2026, 5, 9, 9, 0, 2, tzinfo=datetime.timezone.utc)
PERIOD = 6  # seconds between two points
JITTER = 1.5  # metres, standard deviation of a position
LOST_FROM, LOST_TO = 402, 438  # the arcade: no position under its roof

# Where the person goes, in metres east and north of the well, how fast to there (m/s), and how many seconds they stay.
PATH = [
    (-260.0, -40.0, 1.4, 0),
    (-150.0, -30.0, 1.4, 0),
    (-60.0, 20.0, 1.4, 0),
    (0.0, 0.0, 1.3, 110),  # at the well, waiting for a friend
    (70.0, 30.0, 1.4, 0),
    (150.0, 40.0, 1.3, 0),
    (190.0, 110.0, 1.4, 40),  # the bookshop's window
    (190.0, 190.0, 1.5, 0),
    (260.0, 260.0, 1.5, 0),
]


class Walk:
    """The person's place at every moment."""

    def __init__(self, path):
        self.legs = []  # (begin, end, from, to); a stay is a leg from a place to itself
        now = 0.0
        place = path[0][:2]
        for x, y, speed, stay in path:
            for to, seconds in (((x, y), math.dist(place, (x, y)) / speed), ((x, y), stay)):
                if seconds > 0:
                    self.legs.append((now, now + seconds, place, to))
                now += seconds
                place = to
        self.seconds = now

    def at(self, time):
        begin, end, start, to = next(leg for leg in self.legs if time < leg[1])
        share = (time - begin) / (end - begin)
        return start[0] + share * (to[0] - start[0]), start[1] + share * (to[1] - start[1])


def noise(chance):
    """Nearly normal, of `random()` alone, whose numbers are the same in every version of Python."""
    return JITTER * (sum(chance.random() for _ in range(12)) - 6.0)


def points(walk):
    chance = random.Random(20260509)
    for time in range(0, int(walk.seconds), PERIOD):
        east, north = walk.at(time)
        east, north = east + noise(chance), north + noise(chance)
        if LOST_FROM <= time < LOST_TO:
            continue
        lat = ORIGIN[0] + north / METRES_PER_DEGREE
        lon = ORIGIN[1] + east / (METRES_PER_DEGREE * math.cos(math.radians(ORIGIN[0])))
        yield lat, lon, START + datetime.timedelta(seconds=time)


def main():
    target = pathlib.Path(__file__).resolve().parent / "track.gpx"
    with open(target, "w", newline="", encoding="ascii") as file:
        file.write('<?xml version="1.0" encoding="UTF-8"?>\n')
        file.write('<gpx version="1.1" creator="make_track.py" xmlns="http://www.topografix.com/GPX/1/1">\n')
        file.write("  <trk>\n    <name>Through the town</name>\n    <trkseg>\n")
        for lat, lon, time in points(Walk(PATH)):
            stamp = time.strftime("%Y-%m-%dT%H:%M:%SZ")
            file.write(f'      <trkpt lat="{lat:.6f}" lon="{lon:.6f}"><time>{stamp}</time></trkpt>\n')
        file.write("    </trkseg>\n  </trk>\n</gpx>\n")


if __name__ == "__main__":
    main()
