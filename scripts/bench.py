"""Moves trees and makes the report: the second half of scripts/bench, which prepares build/bench.

    python3 scripts/bench.py SERVER [--short]

SERVER is the process number of Wine's server, whose processor time belongs to the programs that it serves.
"""
import collections
import os
import pathlib
import re
import statistics
import subprocess
import sys
import time

BENCH = pathlib.Path("build/bench")
DISK, PROGRAMS = BENCH / "disk", BENCH / "programs"
OLD = r"T:\old\data\qmgrs\QM1", r"T:\old\log\QM1"
NEW = r"T:\new\data\qmgrs\QM1", r"T:\new\log\QM1"
Move = collections.namedtuple("Move", "wall cpu peak phases", defaults=[()])  # ms, ms, KiB, the floor's four parts in ms
moves = {}  # (tree, files): who: of each round a Move
report = []


def shell(command):
    subprocess.run(["bash", "-euc", command], check=True, cwd=DISK)


def make_trees(tree, files):
    """Makes what every move of them begins with."""
    # Ten files of 4 KiB, one of them read-only and one hidden (which to Wine is one whose name begins with a dot).
    shell("rm -rf template leaf; mkdir -p template/data template/log leaf; cd leaf; "
          "for name in 0 1 2 3 4 5 6 7 8 .9; do head -c 4096 /dev/urandom >$name; done; chmod a-w 8")
    trees = DISK / "template/data", DISK / "template/log"
    if tree == "large":  # 256 MiB in all
        for n in range(files):
            (trees[n % 2] / str(n)).write_bytes(os.urandom((1 << 28) // files))
        return
    for n in range(files // 10):
        # A hundred directories in one, or each in the one before.
        folder = trees[n % 2] / f"{n // 200}/{n}" if tree == "wide" else trees[0].joinpath(*"d" * (n + 1))
        folder.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["cp", "-a", DISK / "leaf", folder], check=True)


def lay_out(queue_managers=1):
    """Makes everything as it is before a move; the last queue manager of zns.ini is QM1."""
    shell("rm -rf old new znm; mkdir -p old/data/qmgrs old/log new znm; cp -a template/data old/data/qmgrs/QM1; "
          "cp -a template/log old/log/QM1")
    (DISK / "old/data/qmgrs/QM1/qm.ini").write_text(f"Log:\n   LogPath={OLD[1]}\\\n")
    with open(DISK / "znm/zns.ini", "w", encoding="ascii") as file:
        file.write("Installation:\n   Name=Inst1\n   Path=T:\\inst\n   Identity=Inst1\n")
        for n in range(queue_managers, 0, -1):
            file.write(f"QueueManager:\n   Name=QM{n}\n   Prefix=T:\\old\\data\n   Directory=QM{n}\n"
                       "   InstallationName=Inst1\n")


def server_ms():
    return sum(map(int, pathlib.Path(f"/proc/{sys.argv[1]}/stat").read_text().split()[13:15])) * 1000 / os.sysconf("SC_CLK_TCK")


def timed(words, runner=(), **environment):
    """Runs a Windows program. Returns its status, its output and the Move that it was."""
    environment = {**os.environ, "ZN_WORK_PATH": r"T:\znm", "ZN_TRACE": "", **environment}
    server, started = server_ms(), time.perf_counter()
    with open(BENCH / "output", "w+", encoding="utf-8", errors="replace") as output:
        process = subprocess.Popen([*runner, "scripts/wine", *words], stdin=subprocess.DEVNULL, stdout=output,
                                   stderr=subprocess.STDOUT, env=environment)
        _, status, usage = os.wait4(process.pid, 0)
        wall = (time.perf_counter() - started) * 1000
        process.returncode = status
        output.seek(0)
        return status, output.read(), Move(
            wall, (usage.ru_utime + usage.ru_stime) * 1000 + server_ms() - server, usage.ru_maxrss)


def words_of(who):
    if who == "xcopy":
        options = "/E /H /K /R /Y /I /Q"
        return ["cmd", "/c", " && ".join([f"xcopy {old} {new} {options}" for old, new in zip(OLD, NEW)] +
                                         [f"rd /s /q {old}" for old in OLD])]
    if who in ("floor", "listings", "looks"):
        return [PROGRAMS / "bench_floor.exe", *OLD, *NEW, r"T:\znm\zns.ini", r"T:\old\data", r"T:\new\data",
                "" if who == "floor" else who]
    return [PROGRAMS / "tarvel.exe", "/m", "QM1", "/dd", r"T:\new\data", "/ld", r"T:\new\log"]


def measure(tree, files, rounds, *names):
    """By turns, in the opposite order every other round. Each move is looked at."""
    print(f"Moving {files} files ({tree}), {rounds} rounds: {' '.join(names)}", flush=True)
    make_trees(tree, files)
    table = moves[tree, files] = {who: [] for who in names}
    for n in range(rounds):
        for who in names[::-1] if n % 2 else names:
            lay_out()
            trace = {"ZN_TRACE": who} if who in ("flow", "detail") else {}
            status, output, move = timed(words_of(who), **trace)
            old, new, template = (sum(len(files) for *_, files in os.walk(DISK / name)) for name in ("old", "new", "template"))
            if status or old or new != template + 1:
                sys.exit(f"{who} ended with {status}, moved {new} files and left {old}:\n{output}")
            phases = tuple(map(float, output.split())) if who in ("floor", "looks") else ()
            table[who].append(move._replace(phases=phases))


def middle(runs, column="wall"):
    return statistics.median(getattr(run, column) for run in runs)


def ratios(runs, others, column="wall", less=None):
    """Of the pairs; without the floor's third part if less has its runs."""
    return [(getattr(run, column) - (less[i].phases[1] if less else 0)) / getattr(other, column)
            for i, (run, other) in enumerate(zip(runs, others))]


def spread(values):
    return f"{statistics.median(values):.3f} ({min(values):.2f} to {max(values):.2f})"


def table(titles, rows):
    report.extend(["", f"| {' | '.join(titles.split('|'))} |", "|---" * (titles.count("|") + 1) + "|"])
    report.extend("| " + " | ".join(map(str, row)) + " |" for row in rows)


def report_moves():
    rows = [(key, who["floor"], who["tarvel"], who["xcopy"], who["looks"]) for key, who in moves.items()]
    table("tree|files|rounds|floor, ms|tarvel, ms|tarvel / floor|fastest / fastest|processor time|tarvel / looks",
          [(*key, len(floor), int(middle(floor)), int(middle(tarvel)), spread(ratios(tarvel, floor)),
            f"{min(tarvel).wall / min(floor).wall:.3f}", spread(ratios(tarvel, floor, "cpu")), spread(ratios(tarvel, looks)))
           for key, floor, tarvel, _, looks in rows])
    table("tree|files|floor: copy, ms|access lists, ms|configuration, ms|deletion, ms|xcopy and rd, ms|"
          "tarvel / xcopy and rd|without access lists",
          [(*key, *(f"{statistics.median(run.phases[i] for run in floor):.1f}" for i in range(4)), int(middle(xcopy)),
            spread(ratios(tarvel, xcopy)), spread(ratios(tarvel, xcopy, less=floor))) for key, floor, tarvel, xcopy, _ in rows])
    rows = [row for row in rows if row[0][0] == "wide"]
    table("files|floor, ms a file|tarvel, ms a file|xcopy and rd, ms a file|beyond the floor, ms a file|"
          "peak of floor, KiB|peak of tarvel, KiB|difference, KiB",
          [(n, *(f"{middle(runs) / n:.3f}" for runs in (floor, tarvel, xcopy)),
            f"{statistics.median(b.wall - a.wall for a, b in zip(floor, tarvel)) / n:+.3f}", int(middle(floor, "peak")),
            int(middle(tarvel, "peak")), f"{middle(tarvel, 'peak') - middle(floor, 'peak'):+.0f}")
           for (_, n), floor, tarvel, xcopy, _ in rows])
    traced = moves["wide", 1000]
    table("trace, wide 1000|ms|of tarvel without trace|processor time",
          [(who, int(middle(traced[who])), *(spread(ratios(traced[who], traced["tarvel"], column)) for column in ("wall", "cpu")))
           for who in ("flow", "detail")])


def report_programs():
    print("Starting programs", flush=True)
    rounds = [[timed([PROGRAMS / f"{name}.exe"])[2] for name in ("bench_empty", "bench_imports", "tarvel")] for _ in range(21)]
    table("start|ms|beyond the empty program, ms|peak, KiB",
          [(name, f"{middle(runs):.1f}", f"{statistics.median(row[i].wall - row[0].wall for row in rounds):+.1f}",
            int(middle(runs, "peak"))) for i, (name, runs) in enumerate(zip(("empty", "imports", "tarvel"), zip(*rounds)))])
    print("Counting calls", flush=True)
    rows = []
    for files in 100, 1000, 3000:
        make_trees("wide", files)
        for who in "floor", "listings", "looks", "tarvel":
            lay_out()
            timed(words_of(who), ["strace", "-f", "-qq", "-c", "-o", BENCH / "calls"])
            calls = int(re.search(r"^\S+ +\S+ +(?:\S+ +)?(\d+) .*total$", (BENCH / "calls").read_text(), re.M)[1])
            floor = calls if who == "floor" else floor
            rows.append((files, who, calls, f"{(calls - floor) / files:.1f}"))
    table("files|who|system calls|beyond the floor, a file", rows)
    lay_out()
    output = timed(words_of("tarvel"), WINEDEBUG="trace+file")[1]
    table("calls of a move|number", [("zns.ini opened", len(re.findall(r'CreateFileW .*zns\.ini" ', output)))])
    print("Tracing, reading and changing zns.ini", flush=True)
    lines = [line.split("\t") for line in timed([PROGRAMS / "bench_trace.exe"])[1].splitlines()]
    table("what, and in which state of the trace (#)|by hand, ns|traced, ns|ratio", lines)
    make_trees("wide", 100)
    lines = collections.defaultdict(list)
    for stanzas in 1, 1000, 10_000, 100_000:
        lay_out(stanzas)
        for name, value in re.findall(r"(.*?)\t(.*)", timed([PROGRAMS / "bench_configuration.exe"])[1]):
            lines[name].append(value)
        lay_out(stanzas)
        lines["a move of 100 files"].append(f"{timed(words_of('tarvel'))[2].wall:.0f}")
    table("milliseconds; queue managers:|1|1,000|10,000|100,000", [(name, *values) for name, values in lines.items()])
    table("stripped program|bytes", [(name, (PROGRAMS / name).stat().st_size) for name in (
        "tarvel.exe", "tovxcs2.dll", "tovxzu.dll", "endznm.exe", "sampleqm.exe")])


def main():
    if "--short" in sys.argv:
        measure("wide", 1000, 7, "floor", "tarvel")
        found = ratios(moves["wide", 1000]["tarvel"], moves["wide", 1000]["floor"])
        print(f"tarvel / floor: {spread(found)}; at most 1.25 is allowed")
        return statistics.median(found) > 1.25
    for tree, files, rounds in ("wide", 100, 9), ("wide", 1000, 11), ("deep", 600, 3), ("large", 4, 5), ("wide", 20_000, 2):
        measure(tree, files, rounds, "floor", "tarvel", "xcopy", "looks", *(["flow", "detail"] if files == 1000 else []))
    report_moves()
    report_programs()
    (BENCH / "report.md").write_text("\n".join([*report, ""]))
    print(*report, sep="\n")
    return False


sys.exit(main())
