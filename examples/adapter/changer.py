#!/usr/bin/env python3
"""The example laboratory's sample changer as a spinlane-adapter helper.

One JSON object per line on standard input, {"id": 7, "call": "LoadSample", "args": [12]}, and
one answer per line on standard output, {"id": 7, "result": true} or {"id": 7, "error": "text"}.
It behaves as changer.sh does, keeping its state in memory: a carousel of
$SPINLANE_LAB_POSITIONS positions, loads and ejects that take $SPINLANE_LAB_LOAD_SECONDS.
"""
import json
import os
import sys
import time

POSITIONS = int(os.environ.get("SPINLANE_LAB_POSITIONS", "24"))
SECONDS = float(os.environ.get("SPINLANE_LAB_LOAD_SECONDS", "5"))


class Changer:
    def __init__(self):
        self.motion = None  # ("load" or "eject", position, end time)
        self.magnet = 0
        self.load_failed = False
        self.spin = False
        self.rate = 0.0

    def settle(self):
        if self.motion and self.motion[2] <= time.monotonic():
            what, position, _ = self.motion
            self.motion = None
            if what == "eject":
                self.magnet = 0
            else:
                self.load_failed = not 1 <= position <= POSITIONS
                if not self.load_failed:
                    self.magnet = position

    def start(self, what, position):
        self.settle()
        if self.motion:
            raise RuntimeError("the changer is busy")
        self.motion = (what, position, time.monotonic() + SECONDS)

    def moving(self, what):
        self.settle()
        return bool(self.motion) and self.motion[0] == what

    def call(self, name, args):
        if name == "LoadSample":
            return self.start("load", args[0])
        if name == "EjectSample":
            return self.start("eject", self.magnet)
        if name == "IsLoading":
            return self.moving("load")
        if name == "IsEjecting":
            return self.moving("eject")
        if name == "GetLoadFailed":
            self.settle()
            return self.load_failed
        if name == "GetEjectFailed":
            return False
        if name == "IsReady":
            return True
        if name == "SetSpinRate":
            self.rate = args[0]
            return None
        if name == "SetSpin":
            self.spin = args[0]
            return None
        if name == "GetActualSpinRate":
            return self.rate if self.spin else 0.0
        if name == "Quit":
            return None
        raise RuntimeError("unknown call " + name)


def main():
    changer = Changer()
    for line in sys.stdin:
        request = json.loads(line)
        try:
            answer = {"id": request["id"], "result": changer.call(request["call"], request["args"])}
        except RuntimeError as error:
            answer = {"id": request["id"], "error": str(error)}
        print(json.dumps(answer), flush=True)


if __name__ == "__main__":
    main()
