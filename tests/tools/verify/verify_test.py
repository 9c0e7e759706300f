"""vxcam verify finds every kind of damage in every kind of record, and nothing in good ones.

VXCAM names the program. VX_VERIFY_SEEDS (1) says how often each kind is tried, at other places
each time, VX_VERIFY_FILES (60) how many good files there are at least."""
import glob
import json
import os
import random
import subprocess
import sys
import tempfile

import damage

VXCAM = os.environ["VXCAM"]
SEEDS = int(os.environ.get("VX_VERIFY_SEEDS", "1"))
FILES = int(os.environ.get("VX_VERIFY_FILES", "60"))
FRAMES = 7
AT_ONCE = 200  # files that one command looks at


def run(*arguments, codes=(0,)):
    done = subprocess.run([VXCAM, *map(str, arguments)], capture_output=True, text=True, timeout=300)
    assert done.returncode in codes, (arguments, done.returncode, done.stderr)
    return done.stdout


def record(path, *arguments, sensor="40x24", faults=(), frames=FRAMES):
    """Files that make up the record."""
    compress = [word for word in ("gzip", "rice") if word in os.path.basename(path)]
    target = f"sim?sensor={sensor}" + "".join("&fault=" + fault for fault in faults)
    run("record", target, "-e", "2ms", "-n", frames, "-o", path, "-q", "--allow-incomplete",
        *(["--compress", compress[0]] if compress else []), *arguments)
    stem, ending = os.path.splitext(path)
    return sorted(glob.glob(stem.split("%")[0] + "*" + ending + "*"))


def verify(paths):
    """What is found in each: pairs of check and text."""
    found = {}
    for at in range(0, len(paths), AT_ONCE):
        some = paths[at:at + AT_ONCE]
        done = run("verify", *some, "--json", codes=(0, 4, 5))
        for file in json.loads(done)["files"]:
            texts = [(one["check"], one["text"]) for one in file.get("findings", [])]
            found[file["file"]] = texts + ([("", file["error"])] if "error" in file else [])
    return found


def damaged(folder, name):
    """Each way, with the files it left, and the check that has to find it."""
    source = record(os.path.join(folder, "good-" + name), faults=("missing-packet:packet=7",))
    good = [path for path in source if not path.endswith(".jsonl")]
    assert not any(verify(good).values()), (name, verify(good))
    for seed in range(SEEDS):
        for number, (title, check, way) in enumerate(damage.WAYS[name]):
            copy = damage.kind_of(name)(source, os.path.join(folder, name, f"{seed}-{number}"))
            way(copy, random.Random(f"{seed} {name} {title}"))
            copy.save()
            yield title, check, copy.files


def finds_damage():
    missed = []
    for name in damage.WAYS:
        with tempfile.TemporaryDirectory() as folder:
            tried = list(damaged(folder, name))
            series = len(tried[0][2]) > 1  # which is looked at as one
            found = {} if series else verify([files[0] for _, _, files in tried])
            kinds = {}
            for title, check, files in tried:
                list_ = [one for part in verify(files).values() for one in part] if series else found[files[0]]
                is_found = any(check in (one, "") or one == "" for one, _ in list_)
                kinds.setdefault(title, []).append(is_found)
                if not is_found:
                    missed.append((name, title, check, list_[:3]))
            for title, results in kinds.items():
                print(f"{name:12} {title:34} found {sum(results)} of {len(results)}")
            print(f"{name:12} {len(kinds)} kinds of damage, {len(tried)} files")
            assert len(kinds) >= 20
    for one in missed:
        print("MISSED", *one)
    return not missed


def good_runs(folder):
    """Records of many kinds, without an end."""
    names = list(damage.WAYS)
    chance = random.Random(14)
    for number in range(10**6):
        name = names[number % len(names)].replace("%02d", "%03d")
        stem, ending = name.split(".")
        path = os.path.join(folder, f"{number:04}-{stem}.{ending}")
        arguments = []
        if ending != "ser" and chance.random() < 0.15:
            arguments = ["--binned"]
        elif chance.random() < 0.3:
            arguments = ["--bits", "8"]
        elif chance.random() < 0.2:
            arguments = ["--area", "4,3,17,9"]
        if "%" not in name and chance.random() < 0.2:
            arguments += ["--split", "20kB"]
        if chance.random() < 0.3:
            arguments += ["--header", "OBSERVER=Anna / with a /"]
        faults = chance.choice([(), (), ("missing-packet:packet=3",), ("close:readout=9",),
                                ("missing-packet:packet=2", "missing-packet:frame=3,packet=5")])
        sensor = f"{chance.randrange(24, 120)}x{chance.randrange(12, 90)}"
        yield record(path, *arguments, sensor=sensor, faults=faults, frames=chance.randrange(1, 12))


def leaves_good_ones():
    with tempfile.TemporaryDirectory() as folder:
        files = []
        for paths in good_runs(folder):
            files += [path for path in paths if not path.endswith(".jsonl")]
            if len(files) >= FILES:
                break
        wrong = {path: found for path, found in verify(files).items() if found}
        for path, found in wrong.items():
            print("NOT GOOD", os.path.basename(path), found[:3])
        print(f"{len(files)} good files, {len(wrong)} with findings")
        return not wrong


if __name__ == "__main__":
    results = [finds_damage(), leaves_good_ones()]
    sys.exit(0 if all(results) else 1)
