#!/usr/bin/env python3
"""Writes packets.csv: what a phone hears while a person walks an hour through a shop with a dozen beacons.

The same file on every run and every machine: the only chance comes from a seeded generator. Run it in any folder:

    python3 examples/shop/make_packets.py
"""

import csv
import math
import pathlib
import random

UUID = "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90"
MAJOR = 1
MEASURED_POWER = -59  # dBm at one metre
PATH_LOSS_EXPONENT = 2.5
NOISE = 2.5  # dB, standard deviation
REACH = 10.0  # metres; farther packets are not heard
PERIOD = 1.0  # seconds between two packets of a beacon
MISSED = 0.08  # share of packets that the scanner misses
WALKING = 0.8  # metres a second
SWAY = 0.25  # metres that a standing person moves about

# The floor, in metres: east and north of the door. Minor: position.
BEACONS = {
    1: (0.0, 0.0),  # entrance
    2: (14.4, 7.2),  # flowers
    3: (28.8, 7.2),  # fruit and vegetables
    4: (43.2, 9.6),  # bakery
    5: (57.6, 9.6),  # cheese counter
    6: (57.6, 24.0),  # wine
    7: (43.2, 28.8),  # tea and coffee
    8: (28.8, 28.8),  # household
    9: (14.4, 28.8),  # books
    10: (4.8, 38.4),  # café
    11: (-4.8, 19.2),  # checkout
    12: (-9.6, 9.6),  # parcel desk
}

# Where the person goes, and for how many seconds they stay there. In between they carry the first bags to the car and
# come back: long enough that the phone leaves the shop's region.
PATH = [
    (0.0, -11.0, 5),
    (0.0, 1.2, 20),
    (14.4, 6.4, 130),
    (28.8, 8.4, 210),
    (36.0, 14.0, 20),
    (43.2, 9.4, 150),
    (57.4, 9.6, 180),
    (57.0, 23.6, 210),
    (50.0, 26.0, 10),
    (43.2, 27.6, 90),
    (43.2, 11.2, 60),
    (20.0, 16.0, 0),
    (-4.8, 18.9, 120),
    (-2.0, 6.0, 0),
    (0.0, -1.0, 10),
    (6.0, -40.0, 150),
    (0.0, -1.5, 15),
    (-9.6, 9.3, 200),
    (4.8, 22.0, 0),
    (14.4, 28.6, 330),
    (28.8, 27.0, 210),
    (28.8, 18.0, 15),
    (43.2, 10.0, 120),
    (30.0, 20.0, 0),
    (4.6, 38.4, 600),
    (-4.8, 19.5, 110),
    (0.0, 0.8, 25),
    (0.0, -25.0, 5),
]


class Walk:
    """The person's place at every moment."""

    def __init__(self, path):
        self.legs = []  # (begin, end, from, to); a stay is a leg from a place to itself
        now = 0.0
        place = path[0][:2]
        for x, y, stay in path:
            for to, seconds in (((x, y), math.dist(place, (x, y)) / WALKING), ((x, y), stay)):
                if seconds > 0:
                    self.legs.append((now, now + seconds, place, to))
                now += seconds
                place = to
        self.seconds = now

    def at(self, time):
        begin, end, start, to = next(leg for leg in self.legs if time < leg[1])
        share = (time - begin) / (end - begin)
        sway = SWAY * math.sin(time / 7.0) if start == to else 0.0
        return start[0] + share * (to[0] - start[0]) + sway, start[1] + share * (to[1] - start[1])


def noise(chance):
    """Nearly normal, of `random()` alone, whose numbers are the same in every version of Python."""
    return NOISE * (sum(chance.random() for _ in range(12)) - 6.0)


def packets(walk):
    chance = random.Random(20240504)
    for minor, place in BEACONS.items():
        time = chance.random() * PERIOD
        while time < walk.seconds:
            distance = max(math.dist(walk.at(time), place), 0.2)
            level = MEASURED_POWER - 10 * PATH_LOSS_EXPONENT * math.log10(distance) + noise(chance)
            heard = chance.random() >= MISSED
            if heard and distance <= REACH:
                yield round(time * 1000), minor, min(round(level), -20)
            time += PERIOD + 0.01 * chance.random()


def main():
    rows = sorted(packets(Walk(PATH)))
    target = pathlib.Path(__file__).resolve().parent / "packets.csv"
    with open(target, "w", newline="", encoding="ascii") as file:
        writer = csv.writer(file, lineterminator="\n")
        writer.writerow(["t_ms", "uuid", "major", "minor", "measured_power", "rssi"])
        for time, minor, rssi in rows:
            writer.writerow([time - rows[0][0], UUID, MAJOR, minor, MEASURED_POWER, rssi])


if __name__ == "__main__":
    main()
