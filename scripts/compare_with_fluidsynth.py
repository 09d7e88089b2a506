#!/usr/bin/python3
"""Renders songs with `vimbo render` and with fluidsynth, effects off, and tells how far the two are apart.

  scripts/compare_with_fluidsynth.py [--bank BANK] [--channels] SONG_OR_FOLDER...

A line per song (with --channels also one per MIDI channel, all others silenced in both programs):
  onsets   per cent of the notes of the song that begin within 20 ms of each other
  level    how much louder ours is on the whole, dB (gains are set so that the same laws give 0)
  rms, 95% how far the level curves are apart beside that, dB: root mean square, and what 95 % of it stay within
  corr     correlation of the mean spectra in third octaves, in dB
  band     greatest difference of a third octave that matters (within 40 dB of the loudest), dB, and where

VIMBO names another program than build/release/bin/vimbo. Channels count from 1.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

RATE = 44100
POLYPHONY = 128  # ours gives each note 1 / sqrt(polyphony) of full scale
STEP = 441  # frames of an onset step: 10 ms
LEVEL_STEPS = 10  # steps that a point of the level curve covers: 100 ms
ONSET_STEPS = 2  # 20 ms
FLOOR_DB = 45  # what is this far below the loudest counts as silence


def missing(what, how):
    sys.exit(f"compare_with_fluidsynth: {what} is missing; {how}")


try:
    import numpy as np
except ImportError:
    missing("numpy", "install python3-numpy and run this with /usr/bin/python3")

VIMBO = os.environ.get("VIMBO", str(Path(__file__).resolve().parent.parent / "build/release/bin/vimbo"))


def run(command, name):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          env={**os.environ, "VIMBO_SETTINGS": ""}, timeout=600)
    return None if done.returncode == 0 else f"{name}: {done.stdout.decode(errors='replace').strip()[-200:]}"


def render(song, bank, folder):
    """Both sounds as arrays (frames, 2), or words about what failed."""
    ours, theirs = folder / "ours.wav", folder / "theirs.raw"
    for file in (ours, theirs):
        file.unlink(missing_ok=True)
    error = run([VIMBO, "render", song, "-b", bank, "--rate", str(RATE), "--no-effects", "--no-normalize",
                 "--keep-silence", "--tail", "5", "--polyphony", str(POLYPHONY), "--data-format", "float32",
                 "-o", str(ours)], "vimbo") \
        or run(["fluidsynth", "-ni", "-q", "-R", "0", "-C", "0", "-g", str(POLYPHONY ** -0.5), "-r", str(RATE),
                "-o", "synth.polyphony=4096", "-T", "raw", "-O", "float", "-E", "little", "-F", str(theirs),
                bank, song], "fluidsynth")
    if error:
        return None, None, error
    if not ours.exists() or not theirs.exists():
        return None, None, "no sound: " + ", ".join(f.name for f in (ours, theirs) if not f.exists())
    data = ours.read_bytes()
    at = data.index(b"data") + 8
    size = min(int.from_bytes(data[at - 4:at], "little"), len(data) - at)
    return (np.frombuffer(data[at:at + size // 8 * 8], "<f4").reshape(-1, 2),
            np.fromfile(theirs, "<f4").reshape(-1, 2), None)


def power_steps(sound):
    """Mean power of both sides in each step."""
    steps = len(sound) // STEP
    return (sound[:steps * STEP].astype(np.float64) ** 2).reshape(steps, -1).mean(axis=1)


def spectra(sound):
    """Magnitudes of 1024-frame windows, one per step."""
    mono = sound.sum(axis=1)
    count = max(0, (len(mono) - 1024) // STEP)
    window = np.hanning(1024)
    out = np.empty((count, 513), np.float32)
    for first in range(0, count, 4096):
        at = np.arange(first, min(count, first + 4096))[:, None] * STEP + np.arange(1024)
        out[at[:, 0] // STEP] = np.abs(np.fft.rfft(mono[at] * window, axis=1))
    return out


def spectral_flux(magnitudes):
    """How much the spectrum, compressed by a logarithm, rises at each step."""
    loud = np.log1p(magnitudes / (1e-9 + 0.001 * magnitudes.max()))
    return np.concatenate([[0], np.maximum(np.diff(loud, axis=0), 0).sum(axis=1)])


def onset_agreement(spectrum_a, spectrum_b, times):
    """Per cent of the notes at whose time both spectra rise most within ONSET_STEPS of each other."""
    a, b = spectral_flux(spectrum_a), spectral_flux(spectrum_b)
    last = min(len(a), len(b)) - 5
    places = [p for p in (int(t * RATE / STEP - 512 / STEP) for t in times) if p < last]
    lags = [np.argmax(a[max(0, p - 3):p + 5]) - np.argmax(b[max(0, p - 3):p + 5]) for p in places]
    return 100.0 * np.mean(np.abs(lags) <= ONSET_STEPS) if lags else np.nan


def third_octaves(magnitudes):
    power = (magnitudes.astype(np.float64) ** 2).mean(axis=0)
    hz = np.arange(513) * RATE / 1024
    centres = 1000 * 2.0 ** (np.arange(-11, 14) / 3)
    out = [power[(hz >= c * 2 ** (-1 / 6)) & (hz < c * 2 ** (1 / 6))].sum() for c in centres]
    return centres, 10 * np.log10(np.array(out) + 1e-20)


def db_curve(sound):
    """Level over LEVEL_STEPS at each step."""
    sums = np.cumsum(np.concatenate([[0.0], power_steps(sound)]))
    return 10 * np.log10(np.maximum(sums[LEVEL_STEPS:] - sums[:-LEVEL_STEPS], 0) / LEVEL_STEPS + 1e-20)


def beyond(a, b):
    """By how much a leaves the range that b has within a step: notes may begin a block sooner or later."""
    padded = np.pad(b, 1, mode="edge")
    near = np.stack([padded[:-2], b, padded[2:]])
    return np.maximum(a - near.max(axis=0), 0) + np.minimum(a - near.min(axis=0), 0)


def compare(ours, theirs, times):
    """The figures of one line; None if either is silent."""
    if not len(ours) or not len(theirs) or not ours.any() or not theirs.any():
        return None
    frames = min(len(ours), len(theirs))
    ours, theirs = ours[:frames], theirs[:frames]
    a, b = db_curve(ours), db_curve(theirs)
    if not len(a):
        return None
    floor = max(a.max(), b.max()) - FLOOR_DB
    level = np.median((a - b)[np.minimum(a, b) > floor])
    counts = np.maximum(a, b) > floor
    rest = beyond(np.maximum(a, floor) - level, np.maximum(b, floor))[counts]
    spectrum_a, spectrum_b = spectra(ours), spectra(theirs)
    if not len(spectrum_a):
        return None
    centres, bands_a = third_octaves(spectrum_a)
    bands_b = third_octaves(spectrum_b)[1]
    matter = np.flatnonzero(np.maximum(bands_a, bands_b) > max(bands_a.max(), bands_b.max()) - 40)
    gaps = (bands_a - bands_b - level)[matter]
    worst = int(np.argmax(np.abs(gaps)))
    correlation = np.corrcoef(bands_a[matter], bands_b[matter])[0, 1] if len(matter) > 2 else 1.0
    return {"onsets": onset_agreement(spectrum_a, spectrum_b, times), "level": level,
            "rms": float(np.sqrt((rest ** 2).mean())), "within": float(np.quantile(np.abs(rest), 0.95)),
            "corr": float(correlation), "band": float(gaps[worst]), "hz": float(centres[matter[worst]])}


def walk_song(data):
    """Events of a Standard MIDI File, track by track: (tick, "note", position of the velocity byte, channel) of
    each note-on, and (tick, "tempo", microseconds per quarter, 0)."""
    at = 14
    while at + 8 <= len(data):
        size = int.from_bytes(data[at + 4:at + 8], "big")
        is_track, at = data[at:at + 4] == b"MTrk", at + 8
        end = min(at + size, len(data))
        if is_track:
            yield from walk_track(data, at, end)
        at = end


def walk_track(data, at, end):
    def number():
        nonlocal at
        value = 0
        while at < end:
            value, at = value << 7 | data[at] & 127, at + 1
            if not data[at - 1] & 128:
                break
        return value

    status = tick = 0
    while at < end:
        tick += number()
        if at >= end:
            return
        if data[at] >= 128:
            status, at = data[at], at + 1
        if status >= 0xF0:
            is_tempo = status == 0xFF and data[at:at + 2] == b"\x51\x03"
            at += status == 0xFF
            size = number()
            if is_tempo:
                yield tick, "tempo", int.from_bytes(data[at:at + 3], "big"), 0
            at += size
            status = 0
        elif status >= 0x80:
            length = 1 if status >> 4 in (0xC, 0xD) else 2
            if status >> 4 == 9 and at + 1 < end:
                yield tick, "note", at + 1, status & 15
            at += length
        else:
            return


def note_times(data):
    """Seconds of all note-ons, each time once; none of files that count in frames."""
    division = int.from_bytes(data[12:14], "big")
    if not 0 < division < 0x8000:
        return []
    seconds, last, per_tick, out = 0.0, 0, 0.5 / division, set()
    for tick, kind, value, _ in sorted(walk_song(data), key=lambda event: (event[0], event[1] == "note")):
        seconds, last = seconds + (tick - last) * per_tick, tick
        if kind == "tempo":
            per_tick = value * 1e-6 / division
        elif data[value]:
            out.add(round(seconds, 3))
    return sorted(out)


def only_channel(data, channel):
    """The song with all other channels' notes struck at velocity 0; none if the channel plays nothing."""
    out, plays = bytearray(data), False
    for _, kind, at, of in walk_song(data):
        if kind != "note":
            continue
        if of != channel:
            out[at] = 0
        elif out[at]:
            plays = True
    return bytes(out) if plays else None


def report(name, song, bank, folder):
    ours, theirs, error = render(str(song), str(bank), folder)
    figures = None if error else compare(ours, theirs, note_times(Path(song).read_bytes()))
    if error or figures is None:
        silent = [who for who, sound in (("vimbo", ours), ("fluidsynth", theirs)) if not error and not sound.any()]
        print(f"{name:38.38s} {error or 'silent: ' + ', '.join(silent) if error or silent else 'too short'}", flush=True)
        return
    print("{name:38.38s} {onsets:6.1f} {level:6.2f} {rms:6.2f} {within:6.2f} {corr:7.4f} {band:7.2f} {hz:7.0f}".format(
        name=name, **figures), flush=True)


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("songs", nargs="+")
    options.add_argument("--bank", default="/usr/share/sounds/sf2/TimGM6mb.sf2")
    options.add_argument("--channels", action="store_true")
    given = options.parse_args()
    if not shutil.which("fluidsynth"):
        missing("fluidsynth", "install it")
    if not shutil.which(VIMBO):
        missing(VIMBO, "build it, or name it in VIMBO")
    if not os.access(given.bank, os.R_OK):
        missing(given.bank, "name a bank with --bank")
    songs = []
    for name in given.songs:
        path = Path(name)
        songs += sorted(path.rglob("*.mid")) if path.is_dir() else [path]
        if not path.exists():
            missing(name, "name songs or folders of them")
    print(f"{'':38s} {'onsets':>6s} {'level':>6s} {'rms':>6s} {'95%':>6s} {'corr':>7s} {'band':>7s} {'at Hz':>7s}")
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        for song in songs:
            report(song.stem, song, given.bank, folder)
            data = song.read_bytes()
            for channel in range(16) if given.channels else ():
                part = only_channel(data, channel)
                if part:
                    (folder / "part.mid").write_bytes(part)
                    report(f"  channel {channel + 1}", folder / "part.mid", given.bank, folder)


main()
