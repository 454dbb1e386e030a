#!/usr/bin/env python3
"""Runs every LV2 plugin of a build in hosts that are not part of it.

Usage: check_hosts.py BUILD WORK CHECK [...]. Checks:
  Metadata     the texts are valid and complete for lv2_validate, lv2ls and lv2info
  SameSamples  lv2file and `zuc replay` make the same samples of the same settings
  Apply        lv2apply, which runs one frame at a time, makes them too
  Ffmpeg       so does ffmpeg's filter lv2
  Loading      loading the shared object takes less than 20 ms of CPU time
  RealTime     nothing on lv2file's way through the shared object allocates, locks or waits
  Jack         jalv runs as a JACK client whose latency is the effect's (starts a dummy server)
  Ardour       Ardour without a window loads it, all its presets by name, and sees latency, side chain and state
Exit status 1 when any plugin fails any check.
"""
import array
import json
import os
import pathlib
import random
import re
import shutil
import signal
import struct
import subprocess
import sys
import time

RATE = 48000
FRAMES = 36000
CASES = 2  # settings per plugin: as it comes, and drawn
LV2_CORE = "/usr/lib/lv2"
JACK_SERVER = "zuclv2"


class Plugin(dict):
    """What zuc_lv2_cases tells of one plugin."""

    def inputs(self):
        return self["channels"] + self["sideChannels"]

    def ports(self, name):
        names = {1: ["m"], 2: ["l", "r"], 6: ["l", "r", "c", "lfe", "ls", "rs"]}
        count = self["sideChannels"] if name == "side" else self["channels"]
        return [f"{name}_{channel}" for channel in names.get(count, [])]

    def runs(self):
        """Each case, with and without its side chain in use."""
        for number, case in enumerate(self["cases"]):
            for side in [False, True] if self["sideChannels"] else [False]:
                values = dict(case["values"])
                if self["sideChannels"]:
                    values["side_chain_used"] = int(side)
                yield f"{self['uri']} case {number}{' with side chain' * side}", values, case, side


def run(*command, **more):
    """What a command prints; fails when the command does."""
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120, **more)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout[-2000:]}")
    return done.stdout


def write_wav(path, channels):
    samples = array.array("f", (sample for frame in zip(*channels) for sample in frame)).tobytes()
    count = len(channels)
    form = struct.pack("<HHIIHH", 3, count, RATE, RATE * count * 4, count * 4, 32)
    path.write_bytes(b"RIFF" + struct.pack("<I", 36 + len(samples)) + b"WAVEfmt " + struct.pack("<I", 16) + form
                     + b"data" + struct.pack("<I", len(samples)) + samples)


def read_wav(path):
    """The samples of a 32-bit float file, interleaved."""
    data = path.read_bytes()
    place = 12
    while data[place:place + 4] != b"data":
        place += 8 + struct.unpack("<I", data[place + 4:place + 8])[0]
    size = min(struct.unpack("<I", data[place + 4:place + 8])[0], len(data) - place - 8)
    return array.array("f", data[place + 8:place + 8 + size])


class Checks:
    def __init__(self, build, work, name):
        # A folder for each run: ctest has several of them at a time.
        self.build, self.work = pathlib.Path(build).resolve(), pathlib.Path(work).resolve() / "hosts" / name
        self.bundles = self.build / "lv2"
        self.work.mkdir(parents=True, exist_ok=True)
        os.environ["LV2_PATH"] = f"{self.bundles}:{LV2_CORE}"
        self.plugins = [Plugin(p) for p in json.loads(run(self.build / "bin/zuc_lv2_cases", str(CASES)))]
        self.count = 0
        draw = random.Random(1)
        self.noise = [[draw.uniform(-0.5, 0.5) for _ in range(FRAMES)] for _ in range(8)]

    def input(self, first, count):
        path = self.work / f"in-{first}-{count}.wav"
        if not path.exists():
            write_wav(path, self.noise[first:first + count])
        return path

    def expect(self, condition, what):
        self.count += 1
        if not condition:
            raise AssertionError(what)

    def replay(self, plugin, case, side):
        """What the library itself makes of the input."""
        script = self.work / "replay.json"
        script.write_text(json.dumps({
            "effect": plugin["effect"], "rate": RATE, "channels": plugin["channels"],
            "events": case["events"] + [{"op": "resume"}, {"op": "process", "frames": FRAMES, "block": 512}]}))
        more = ["--side", self.input(plugin["channels"], plugin["sideChannels"])] if side else []
        out = self.work / "replay.wav"
        run(self.build / "bin/zuc", "replay", script, self.input(0, plugin["channels"]), out, *more)
        return read_wav(out)

    def compare(self, name, got, expected):
        self.count += 1
        if got == expected:
            return
        first = next((i for i, (a, b) in enumerate(zip(got, expected)) if a != b), min(len(got), len(expected)))
        raise AssertionError(f"{name}: {len(got)} samples for {len(expected)}, different from sample {first}: "
                             f"{got[first:first + 3].tolist()} for {expected[first:first + 3].tolist()}")

    # ---- The checks ----

    def metadata(self):
        texts = sorted(self.bundles.rglob("*.ttl"))
        output = run("lv2_validate", *texts)
        self.expect("Found 0 errors" in output and "warning" not in output, output[-3000:])
        listed = [uri for uri in run("lv2ls").split() if uri.startswith("urn:zuc:")]
        self.expect(sorted(listed) == sorted(p["uri"] for p in self.plugins), listed)
        for plugin in self.plugins:
            text = run("lv2info", plugin["uri"])
            part = re.search(r"Presets:(.*?)\n\n", text, re.S)
            presets = sorted(line.strip() for line in part.group(1).splitlines() if line.strip())
            self.expect(presets == sorted(plugin["presets"]), (plugin["uri"], presets))
            symbols = set(re.findall(r"Symbol:\s+(\S+)", text))
            self.expect(symbols >= {"latency", "enabled", *plugin["cases"][0]["values"], *plugin.ports("side")},
                        (plugin["uri"], symbols))
            self.expect("Has latency:       yes" in text and "the zuc authors" in text, text)
            self.expect(not re.search(r"^(error|warning|lilv_)", text, re.M), text)

    def same_samples(self):
        for plugin in self.plugins:
            for name, values, case, side in plugin.runs():
                self.compare(name, self.lv2file(plugin, values), self.replay(plugin, case, side))

    def lv2file(self, plugin, values):
        run(*self.lv2file_command(plugin, values))
        return read_wav(self.work / "lv2file.wav")

    def lv2file_command(self, plugin, values):
        ports = plugin.ports("in") + plugin.ports("side")
        connect = [word for i, port in enumerate(ports) for word in ("-c", f"{i + 1}:{port}")]
        settings = [word for symbol, value in values.items() for word in ("-p", f"{symbol}:{value!r}")]
        return ["lv2file", "-i", self.input(0, plugin.inputs()), "-o", self.work / "lv2file.wav", "-b", "777",
                "--ignore-clipping", *connect, *settings, plugin["uri"]]

    def apply(self):
        for plugin in self.plugins:
            for name, values, case, side in plugin.runs():
                out = self.work / "lv2apply.wav"
                settings = [word for symbol, value in values.items() for word in ("-c", symbol, repr(value))]
                run("lv2apply", "-i", self.input(0, plugin.inputs()), "-o", out, *settings, plugin["uri"])
                self.compare(name, read_wav(out), self.replay(plugin, case, side))

    def ffmpeg(self):
        for plugin in self.plugins:
            for name, values, case, side in plugin.runs():
                out = self.work / "ffmpeg.wav"
                uri = plugin["uri"].replace(":", r"\\:")
                controls = "|".join(f"{symbol}={value!r}" for symbol, value in values.items())
                run("ffmpeg", "-hide_banner", "-y", "-i", self.input(0, plugin.inputs()), "-af",
                    f"lv2=p={uri}:c={controls}", "-c:a", "pcm_f32le", out)
                self.compare(name, read_wav(out), self.replay(plugin, case, side))

    def real_time(self):
        guard = dict(os.environ, LD_PRELOAD=str(next(self.build.rglob("librtguard.so"))), RTGUARD_REPORT="1",
                     RTGUARD_TRACE="1")
        for plugin in self.plugins:
            for name, values, _, _ in plugin.runs():
                out = run(*self.lv2file_command(plugin, values), env=guard)
                scopes, findings = map(int, re.search(r"(\d+) scopes, (\d+) findings", out).groups())
                # Waking a worker that sleeps never waits.
                allowed = len(re.findall(r"sem_post", out))
                self.expect(scopes > 10 and findings <= allowed, f"{name}: {out[-2000:]}")

    def loading(self):
        program = ("import ctypes, sys, time; start = time.process_time(); library = ctypes.CDLL(sys.argv[1]);"
                   "library.lv2_descriptor.restype = ctypes.c_void_p; count = 0\n"
                   "while library.lv2_descriptor(count): count += 1\n"
                   "print(1000 * (time.process_time() - start), count)")
        runs = [run(sys.executable, "-c", program, self.bundles / "zuc.lv2/zuc.so").split() for _ in range(9)]
        fastest = min(float(milliseconds) for milliseconds, _ in runs)
        self.expect(fastest < 20 and int(runs[0][1]) >= len(self.plugins), runs)
        print(f"Loading: {fastest:.1f} ms")

    def jack(self):
        os.environ["JACK_DEFAULT_SERVER"] = JACK_SERVER
        server = subprocess.Popen(["jackd", "-n", JACK_SERVER, "--no-realtime", "-d", "dummy", "-r", str(RATE),
                                   "-p", "256"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            run("jack_wait", "-w", "-t", "10")
            for plugin in self.plugins:
                self.check_jalv(plugin)
        finally:
            server.send_signal(signal.SIGTERM)
            server.wait(10)

    def latency(self, plugin):
        return json.loads(run(self.build / "bin/zuc", "describe", plugin["effect"], "--json"))["latencyFrames"]

    def check_jalv(self, plugin):
        latency = self.latency(plugin)
        jalv = subprocess.Popen(["jalv", "-n", "zuc_check", plugin["uri"]], stdin=subprocess.PIPE,
                                stdout=subprocess.DEVNULL, stderr=subprocess.STDOUT)
        try:
            for _ in range(100):
                ports = run("jack_lsp", "-l", "zuc_check:out")
                # Nothing is connected, so all there is comes from the plugin; on which side jalv tells it is its own.
                seen = [max(map(int, port)) for port in
                        re.findall(r"out_\S+\s+.*\[ (\d+) .*\s+.*\[ (\d+) ", ports)]
                if seen == [latency] * plugin["channels"]:
                    break
                time.sleep(0.05)
            self.expect(seen == [latency] * plugin["channels"], f"{plugin['uri']}: not {latency} frames:\n{ports}")
            self.expect(jalv.poll() is None, f"{plugin['uri']}: jalv has ended")
        finally:
            jalv.terminate()
            jalv.wait(10)


    def ardour(self):
        script = pathlib.Path(__file__).resolve().parent / "ardour.lua"
        for plugin in self.plugins:
            folder = self.work / "session"
            shutil.rmtree(folder, ignore_errors=True)
            presets = self.work / "presets.txt"
            presets.write_text("\n".join(plugin["presets"]))
            output = run("ardour7-lua", script, folder, plugin["uri"], str(plugin["channels"]), presets)
            facts = re.findall(r"^(\w+)\s(.*)$", output, re.M)
            seen = dict(facts)
            self.expect((seen.get("added"), seen.get("maker")) == ("0", "the zuc authors"), output)
            self.expect(seen.get("latency") == str(self.latency(plugin)), f"{plugin['uri']}: {seen}")
            streams = [seen.get(word) for word in ("inputs", "outputs", "side")]
            self.expect(streams == [str(plugin[word]) for word in ("channels", "channels", "sideChannels")],
                        f"{plugin['uri']}: {seen}")
            loaded = [value for word, value in facts if word == "preset"]
            self.expect(loaded == plugin["presets"], f"{plugin['uri']}: {loaded}")
            if plugin["hasHiddenSettings"]:  # went from the preset into the plugin, and from there into the session
                state = "".join(path.read_text() for path in folder.rglob("state.ttl"))
                self.expect(f'"Name":"{plugin["presets"][-1]}"' in state, f"{plugin['uri']}: {state}")


def main(build, work, *names):
    checks = Checks(build, work, names[0])
    known = {"Metadata": checks.metadata, "SameSamples": checks.same_samples, "Apply": checks.apply,
             "Ffmpeg": checks.ffmpeg, "Loading": checks.loading, "RealTime": checks.real_time,
             "Jack": checks.jack, "Ardour": checks.ardour}
    for name in names:
        before, start = checks.count, time.monotonic()
        try:
            known[name]()
        except (AssertionError, subprocess.SubprocessError) as error:
            print(f"{name}: {error}", file=sys.stderr)
            return 1
        print(f"{name}: {len(checks.plugins)} plugins, {checks.count - before} checks, "
              f"{time.monotonic() - start:.1f} s")
    return 0


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
