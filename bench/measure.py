#!/usr/bin/env python3
"""Measures package verification against rpmkeys, the limit program and
the floor program and writes the report.

    measure.py --build DIR --corpus DIR --host PROGRAM --out DIR [--quick]

Every case runs each command once as a warm-up (which also brings the files
into the page cache), then several times with the commands interleaved in a
rotating order, so that each ratio is taken pair by pair within one run.
Writes OUT/report.md, OUT/report.png and OUT/results.json and prints the
table.
"""

import argparse
import glob
import json
import atexit
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

MIB = 1 << 20
MB = 1e6

# Targets of the benchmark.
TARGET_BIG_PEER = 0.80
TARGET_BIG_LIMIT = 1.02
TARGET_SMALL_MS = 0.12
TARGET_SMALL_FLOOR = 1.10
TARGET_SYSCALLS = 16
TARGET_JOBS_SPEEDUP = 1.7
TARGET_PEAK_KB = 12 * 1000  # 12 MB, as /usr/bin/time reports kilobytes
# Heap growth per verification beyond the retained certificates that counts
# as none: less than the smallest allocation (the allocator rounds each
# block, so blocks of equal content can count a few bytes apart).
GROWTH_TOLERANCE = 16


def fail(message):
    print(f"measure.py: {message}", file=sys.stderr)
    sys.exit(1)


class Tools:
    def __init__(self, args):
        self.corpus = os.path.abspath(args.corpus)
        self.key = os.path.join(self.corpus, "key.asc")
        self.rpmdb = os.path.join(self.corpus, "rpmdb")
        self.host = os.path.abspath(args.host)
        self.limit = os.path.join(args.build, "bench", "bench_limit")
        self.memory = os.path.join(args.build, "bench", "bench_memory")
        self.floor = os.path.join(args.build, "bench", "bench_floor")
        self.home = tempfile.mkdtemp(prefix="bench-home-")
        atexit.register(shutil.rmtree, self.home, True)
        # rpm reads ~/.rpmmacros: a private HOME keeps the user's macros out.
        self.peer_env = dict(os.environ, HOME=self.home, LC_ALL="C")

    def command(self, who, packages, jobs=1):
        if who == "ours":
            # One process, as rpmkeys and the other programs: the worker
            # processes of --jobs are measured on their own.
            return [self.host, "verify", "--jobs", str(jobs), "--key", self.key] + packages, None
        if who == "peer":
            return ["rpmkeys", "--dbpath", self.rpmdb, "--checksig"] + packages, self.peer_env
        if who == "limit":
            return [self.limit] + packages, None
        if who == "floor":
            return [self.floor, self.key] + packages, None
        raise ValueError(who)

    def run(self, who, packages):
        """Seconds of wall time of one run; the command must succeed."""
        command, env = self.command(who, packages)
        start = time.perf_counter()
        result = subprocess.run(command, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        if result.returncode != 0:
            fail(f"{who} failed with status {result.returncode} on {len(packages)} package(s): "
                 f"{' '.join(command[:6])} ...\n{result.stderr.decode(errors='replace')[-2000:]}")
        return elapsed

    def peak_kb(self, who, packages):
        """Peak resident memory in kilobytes, from /usr/bin/time."""
        command, env = self.command(who, packages)
        with tempfile.NamedTemporaryFile("r", suffix=".time") as out:
            result = subprocess.run(["/usr/bin/time", "-f", "%M", "-o", out.name] + command, env=env,
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
            if result.returncode != 0:
                fail(f"{who} failed under /usr/bin/time: {result.stderr.decode(errors='replace')[-2000:]}")
            return int(out.read().split()[-1])


def spread(values):
    """Relative spread: (max - min) / median."""
    median = statistics.median(values)
    return (max(values) - min(values)) / median if median else 0.0


def interleaved(tools, packages, runs, whos=("ours", "peer", "limit")):
    """Warm-up, then runs with the commands in a rotating order."""
    for who in whos:
        tools.run(who, packages)
    times = {who: [] for who in whos}
    for i in range(runs):
        order = whos[i % len(whos):] + whos[:i % len(whos)]
        for who in order:
            times[who].append(tools.run(who, packages))
    return times


def summarize(times, size, count):
    """Medians, spreads and pairwise ratios of one case."""
    case = {"size": size, "count": count, "runs": len(times["ours"])}
    for who, values in times.items():
        case[who] = {"median": statistics.median(values), "spread": spread(values), "all": values}
    for other in ("peer", "limit", "floor"):
        if other in times:
            ratios = [a / b for a, b in zip(times["ours"], times[other])]
            case[f"ours/{other}"] = {
                "median": statistics.median(ratios),
                "min": min(ratios),
                "max": max(ratios),
            }
    return case


def slope(points):
    """Least-squares slope of (x, y) points."""
    n = len(points)
    mean_x = sum(x for x, _ in points) / n
    mean_y = sum(y for _, y in points) / n
    den = sum((x - mean_x) ** 2 for x, _ in points)
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / den if den else 0.0


def memory_growth(tools, packages, count, every):
    output = subprocess.run([tools.memory, tools.key, os.path.join(tools.corpus, "data.sig"),
                             os.path.join(tools.corpus, "data.bin"), str(count), str(every)] + packages,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if output.returncode != 0:
        fail(f"bench_memory failed: {output.stderr.decode(errors='replace')[-2000:]}")
    phases = {"verify": [], "keyload": [], "keycheck": []}
    for line in output.stdout.decode().splitlines():
        phase, calls, resident, heap = line.split()
        phases[phase].append((int(calls), int(resident), int(heap)))
    verify = phases["verify"]
    # The first block includes one-time allocations (the store, OpenSSL's
    # tables): the growth is taken from the first report on.
    steady = [row for row in verify if row[0] >= every]
    resident_per_call = slope([(c, r) for c, r, _ in steady])
    heap_per_call = slope([(c, h) for c, _, h in steady])

    def per_call(rows):
        (_, _, heap0), (calls, _, heap1) = rows[0], rows[-1]
        return (heap1 - heap0) / calls

    retained_per_load = per_call(phases["keyload"])
    retained_per_check = per_call(phases["keycheck"])
    # Each verification checks two PGP signatures; each check loads the key
    # into a certificate that the store keeps, and uses it once.
    contract = 2 * retained_per_check
    return {
        "count": count,
        "every": every,
        "rows": verify,
        "resident_per_1000": resident_per_call * 1000,
        "heap_per_1000": heap_per_call * 1000,
        "heap_per_call": heap_per_call,
        "retained_per_key_load": retained_per_load,
        "retained_per_check": retained_per_check,
        "contract_per_call": contract,
        "beyond_contract_per_call": heap_per_call - contract,
    }


def syscall_counts(tools, packages):
    """System calls of signing-host verify by name, from strace -c -f."""
    command, _ = tools.command("ours", packages)
    with tempfile.NamedTemporaryFile("r", suffix=".strace") as out:
        result = subprocess.run(["strace", "-f", "-c", "-o", out.name] + command,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        if result.returncode != 0:
            # strace cannot trace everywhere (a container may forbid ptrace):
            # the report then says so instead of failing the whole run.
            print(f"measure.py: strace failed: {result.stderr.decode(errors='replace')[-500:]}", file=sys.stderr)
            return None
        counts = {}
        for line in out.read().splitlines():
            fields = line.split()
            # "% time  seconds  usecs/call  calls  [errors]  syscall"
            if len(fields) >= 5 and fields[0][0].isdigit() and fields[-1] != "total":
                counts[fields[-1]] = int(fields[3])
        return counts


def syscalls(tools, packages):
    """System calls per small package: (calls for all - calls for one) / (n - 1)."""
    if shutil.which("strace") is None:
        return None
    one = syscall_counts(tools, packages[:1])
    many = syscall_counts(tools, packages)
    if one is None or many is None:
        return None
    n = len(packages)
    per = {name: (many.get(name, 0) - one.get(name, 0)) / (n - 1) for name in set(one) | set(many)}
    per = {name: value for name, value in per.items() if value >= 0.005}
    return {"count": n, "per_package": dict(sorted(per.items(), key=lambda item: -item[1])),
            "total": sum(per.values()), "output_writes": per.get("write", 0.0)}


def jobs_throughput(tools, cases, runs):
    """signing-host verify at --jobs 1 and --jobs 2 over each case, with
    identical output required."""
    results = []
    for name, packages in cases:
        outputs = {}
        times = {1: [], 2: []}
        for i in range(runs + 1):
            for jobs in ((1, 2) if i % 2 == 0 else (2, 1)):
                start = time.perf_counter()
                command, _ = tools.command("ours", packages, jobs)
                result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                elapsed = time.perf_counter() - start
                if result.returncode != 0:
                    fail(f"signing-host verify --jobs {jobs} failed on {name}: "
                         f"{result.stderr.decode(errors='replace')[-2000:]}")
                outputs.setdefault(jobs, result.stdout)
                if i > 0:  # the first round warms up
                    times[jobs].append(elapsed)
        ratios = [a / b for a, b in zip(times[1], times[2])]
        results.append({"case": name, "jobs1": statistics.median(times[1]),
                        "jobs2": statistics.median(times[2]), "speedup": statistics.median(ratios),
                        "min": min(ratios), "max": max(ratios), "identical": outputs[1] == outputs[2],
                        "runs": runs})
    return results


def ms(seconds):
    return f"{seconds * 1000:.3f} ms" if seconds < 1 else f"{seconds:.3f} s"


def size_name(size):
    return f"{size // MIB} MiB" if size >= MIB else f"{size / 1024:.1f} KiB"


def met(ok):
    return "**met**" if ok else "**not met**"


def table_row(cells, case):
    """The table row of case: cells, then its ratios, spreads and run count."""
    for other in ("peer", "limit"):
        r = case[f"ours/{other}"]
        cells.append(f"{r['median']:.3f} ({r['min']:.3f}-{r['max']:.3f})")
    cells.append(" / ".join(f"{case[w]['spread'] * 100:.0f}%" for w in ("ours", "peer", "limit")))
    cells.append(str(case["runs"]))
    return "| " + " | ".join(cells) + " |"


def report(results, out, quick):
    lines = []
    load = results["load"]
    lines.append("# Verification benchmark")
    lines.append("")
    lines.append(f"{'Quick run (reduced corpus and runs). ' if quick else ''}"
                 f"Machine: {os.cpu_count()} cores; load average before {load['before']}, after {load['after']}. "
                 "Wall-clock medians of whole commands, files in the page cache; "
                 "throughput in MB/s (10^6 bytes). Ratios are medians of per-run ratios "
                 "(commands interleaved), with their min-max; spread is (max - min) / median of the times.")
    # The run itself keeps one core busy: only the load found before it counts.
    busy = float(load["before"].split()[0])
    if busy > 1.2:
        lines.append("")
        lines.append(f"**The machine was busy (1-minute load average {busy:.1f} on {os.cpu_count()} cores before "
                     "the run): wall-clock figures and ratios are noisy.**")
    lines.append("")
    lines.append("| case | ours (signing-host verify) | peer (rpmkeys --checksig) | limit (bench_limit) "
                 "| ours/peer | ours/limit | spread ours / peer / limit | runs |")
    lines.append("|---|---|---|---|---|---|---|---|")
    for case in results["big"]:
        size = case["size"]
        cells = [f"{size_name(size)} package"]
        for who in ("ours", "peer", "limit"):
            median = case[who]["median"]
            cells.append(f"{ms(median)} ({size / median / MB:.0f} MB/s)")
        lines.append(table_row(cells, case))
    small = results["small"]
    n = small["count"]
    cells = [f"{n} small packages ({size_name(small['size'])} average), one process, per package"]
    for who in ("ours", "peer", "limit"):
        cells.append(f"{small[who]['median'] / n * 1000:.4f} ms")
    lines.append(table_row(cells, small))
    startup = results["startup"]
    cells = ["start-up: one small package, whole command"]
    for who in ("ours", "peer", "limit"):
        cells.append(ms(startup[who]["median"]))
    lines.append(table_row(cells, startup))
    peak = results["peak"]
    lines.append(f"| peak resident memory, {n} small packages | {peak['ours'] / 1000:.1f} MB "
                 f"| {peak['peer'] / 1000:.1f} MB | - | {peak['ours'] / peak['peer']:.3f} | - | - "
                 f"| {peak['runs']} |")
    growth = results["growth"]
    lines.append(f"| resident growth per 1,000 verifications (over {growth['count']:,}) "
                 f"| {growth['resident_per_1000'] / 1000:.1f} kB (heap {growth['heap_per_1000'] / 1000:.1f} kB) "
                 "| - | - | - | - | - | 1 |")
    lines.append("")
    floor_small = small["floor"]["median"] / n * 1000
    r_floor = small["ours/floor"]
    lines.append(f"Floor (bench_floor: per package one read, one MD5, SHA-1 and SHA-256 pass, the key file read and "
                 f"decoded twice, two RSA verifications with a prepared key; libcrypto only), same rounds: "
                 f"{floor_small:.4f} ms per small package; ours/floor {r_floor['median']:.3f} "
                 f"({r_floor['min']:.3f}-{r_floor['max']:.3f}), spread {small['floor']['spread'] * 100:.0f}%; "
                 f"start-up of one package {ms(results['startup']['floor']['median'])}.")
    lines.append("")

    lines.append("## Targets")
    lines.append("")
    largest = max(results["big"], key=lambda case: case["size"])
    big_note = "" if largest["size"] >= 512 * MIB else \
        f" (quick run: measured on the {size_name(largest['size'])} package instead)"
    r_peer = largest["ours/peer"]["median"]
    r_limit = largest["ours/limit"]["median"]
    targets = []
    targets.append((f"512 MiB package: ours at most {TARGET_BIG_PEER:.2f} of rpmkeys' time{big_note}",
                    r_peer <= TARGET_BIG_PEER, f"ratio {r_peer:.3f}"))
    targets.append((f"512 MiB package: ours at most {TARGET_BIG_LIMIT:.2f} of the limit program's time{big_note}",
                    r_limit <= TARGET_BIG_LIMIT, f"ratio {r_limit:.3f}"))
    per_package = small["ours"]["median"] / n * 1000
    targets.append((f"{n} small packages in one process: at most {TARGET_SMALL_MS} ms per package",
                    per_package <= TARGET_SMALL_MS, f"{per_package:.4f} ms"))
    r_small = small["ours/floor"]["median"]
    targets.append((f"{n} small packages: at most {TARGET_SMALL_FLOOR:.2f} of the floor program's time",
                    r_small <= TARGET_SMALL_FLOOR, f"ratio {r_small:.3f}"))
    beyond = growth["beyond_contract_per_call"]
    targets.append(("no heap growth per verification beyond the certificates the store retains",
                    beyond <= GROWTH_TOLERANCE,
                    f"heap growth {growth['heap_per_call']:.0f} bytes per verification, of which the store's "
                    f"two certificates (one per PGP signature check, {growth['retained_per_check']:.0f} bytes "
                    f"each once used, {growth['retained_per_key_load']:.0f} bytes as loaded) are "
                    f"{growth['contract_per_call']:.0f} bytes: "
                    f"{beyond:.0f} bytes beyond them; "
                    f"resident growth {growth['resident_per_1000'] / 1000:.1f} kB per 1,000"))
    targets.append((f"peak resident memory over {n} small packages under 12 MB",
                    peak["ours"] < TARGET_PEAK_KB, f"{peak['ours'] / 1000:.1f} MB (rpmkeys {peak['peer'] / 1000:.1f} MB)"))
    calls = results.get("syscalls")
    if calls is None:
        targets.append((f"at most {TARGET_SYSCALLS} system calls per small package (strace -c)", False,
                        "not measured: strace is missing or cannot trace here"))
    if calls:
        library = calls["total"] - calls["output_writes"]
        targets.append((f"at most {TARGET_SYSCALLS} system calls per small package (strace -c)",
                        library <= TARGET_SYSCALLS,
                        f"{library:.1f} in rpm_verify, {calls['total']:.1f} for the whole command with "
                        f"signing-host's write of each result line"))
    for case in results.get("jobs") or []:
        targets.append((f"{case['case']}: --jobs 2 at least {TARGET_JOBS_SPEEDUP} times as fast as --jobs 1, "
                        "results identical", case["speedup"] >= TARGET_JOBS_SPEEDUP and case["identical"],
                        f"{case['speedup']:.2f} times, results {'identical' if case['identical'] else 'DIFFERENT'}"))
    for text, ok, figure in targets:
        lines.append(f"- {text}: {met(ok)}, {figure}.")
    marginal = results["marginal"]
    lines.append("")
    lines.append(f"Per small package without the start-up of the command, (time for {n} - time for 1) / {n - 1}: "
                 f"ours {marginal['ours'] * 1000:.4f} ms, rpmkeys {marginal['peer'] * 1000:.4f} ms, "
                 f"limit {marginal['limit'] * 1000:.4f} ms, floor {marginal['floor'] * 1000:.4f} ms.")
    lines.append("")
    lines.append("Throughput against package size: report.png.")
    if calls:
        lines.append("")
        lines.append(f"## System calls per small package (strace -c -f of signing-host verify: "
                     f"(calls for {calls['count']} packages - calls for 1) / {calls['count'] - 1})")
        lines.append("")
        lines.append("| system call | per package |")
        lines.append("|---|---|")
        for name, value in calls["per_package"].items():
            lines.append(f"| {name}{' (signing-host writes the result line)' if name == 'write' else ''} "
                         f"| {value:.2f} |")
        lines.append(f"| total | {calls['total']:.2f} |")
    jobs = results.get("jobs")
    lines.append("")
    lines.append("## Several processes (signing-host verify --jobs N)")
    lines.append("")
    if jobs:
        lines.append("The 64 MiB package is named several times; each name is verified anew.")
        lines.append("")
        lines.append("| case | --jobs 1 | --jobs 2 | speed-up (min-max) | results | runs |")
        lines.append("|---|---|---|---|---|---|")
        for case in jobs:
            lines.append(f"| {case['case']} | {ms(case['jobs1'])} | {ms(case['jobs2'])} "
                         f"| {case['speedup']:.2f} ({case['min']:.2f}-{case['max']:.2f}) "
                         f"| {'identical' if case['identical'] else 'DIFFERENT'} | {case['runs']} |")
    micro_us = {b["name"]: b["cpu_time"] * {"ns": 1e-3, "us": 1, "ms": 1e3, "s": 1e6}[b["time_unit"]]
                for b in results.get("micro") or []}
    if all(k in micro_us for k in ("BM_RpmVerifySmall", "BM_SignatureCheck", "BM_RsaVerify", "BM_LoadPgpPublicKey")):
        whole = micro_us["BM_RpmVerifySmall"]
        checks = 2 * micro_us["BM_SignatureCheck"]
        rsa = 2 * micro_us["BM_RsaVerify"]
        keys = 2 * micro_us["BM_LoadPgpPublicKey"]
        lines.append("")
        lines.append("## Where the time of a small package goes (CPU, from the micro-benchmarks)")
        lines.append("")
        lines.append(f"- one rpm_verify of a small package: {whole:.1f} us")
        lines.append(f"- its two PGP signature checks: {checks:.1f} us ({checks / whole * 100:.0f}%), of which "
                     f"the RSA verifications themselves {rsa:.1f} us ({rsa / whole * 100:.0f}%), loading and "
                     f"parsing the key file twice {keys:.1f} us ({keys / whole * 100:.0f}%), and the rest "
                     f"(signature trailer hash, quick checks) "
                     f"{checks - rsa - keys:.1f} us ({(checks - rsa - keys) / whole * 100:.0f}%)")
        lines.append(f"- everything else (file access, lead and header parsing, the digests, the result text): "
                     f"{whole - checks:.1f} us ({(whole - checks) / whole * 100:.0f}%)")
        peer_us = small["peer"]["median"] / n * 1e6
        lines.append(f"- the two RSA verifications alone are {rsa / peer_us:.2f} of rpmkeys' whole time per "
                     f"package ({peer_us:.1f} us), which also checks two RSA signatures per package")
    if results.get("micro"):
        lines.append("")
        lines.append("## Micro-benchmarks (CPU time)")
        lines.append("")
        for key, text in (("BM_LoadPgpPublicKey", "key load (read, decode and parse the key file)"),
                          ("BM_ParseSignatureHeader", "signature-header parse of a small package"),
                          ("BM_RpmVerifySmall", "one rpm_verify of a small package")):
            if key in micro_us:
                lines.append(f"- {text}: {micro_us[key]:.1f} us")
        lines.append("")
        lines.append("| benchmark | CPU time | throughput |")
        lines.append("|---|---|---|")
        for bench in results["micro"]:
            rate = bench.get("bytes_per_second")
            lines.append(f"| {bench['name']}{' ' + bench['label'] if bench.get('label') else ''} "
                         f"| {bench['cpu_time']:.2f} {bench['time_unit']} "
                         f"| {f'{rate / MB:.0f} MB/s' if rate else '-'} |")
    text = "\n".join(lines) + "\n"
    with open(os.path.join(out, "report.md"), "w") as f:
        f.write(text)
    return text


def plot(results, out):
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    small = results["small"]
    cases = [(small["size"], {w: small[w]["median"] / small["count"] for w in ("ours", "peer", "limit")})]
    cases += [(case["size"], {w: case[w]["median"] for w in ("ours", "peer", "limit")}) for case in results["big"]]
    cases.sort()
    fig, ax = plt.subplots(figsize=(8, 5))
    names = {"ours": "signing-host verify", "peer": "rpmkeys --checksig", "limit": "limit (digests only)"}
    for who, style in (("ours", "o-"), ("peer", "s-"), ("limit", "^--")):
        ax.plot([size for size, _ in cases], [size / t[who] / MB for size, t in cases], style, label=names[who])
    ax.set_xscale("log", base=2)
    ax.set_xticks([size for size, _ in cases])
    ax.set_xticklabels([size_name(size) for size, _ in cases])
    ax.set_xlabel("package size (log scale); smallest: per package, many in one process")
    ax.set_ylabel("throughput (MB/s)")
    ax.set_title("Package verification throughput (medians)")
    ax.grid(True, which="both", alpha=0.3)
    ax.legend()
    fig.tight_layout()
    fig.savefig(os.path.join(out, "report.png"), dpi=110)


def micro(args, out):
    program = os.path.join(args.build, "bench", "bench_micro")
    if not os.path.exists(program):
        return []
    json_path = os.path.join(out, "micro.json")
    min_time = "0.05" if args.quick else "0.5"
    result = subprocess.run([program, f"--benchmark_min_time={min_time}", f"--benchmark_out={json_path}",
                             "--benchmark_out_format=json", args.corpus],
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    with open(os.path.join(out, "micro.txt"), "wb") as f:
        f.write(result.stdout)
    if result.returncode != 0:
        fail(f"bench_micro failed:\n{result.stdout.decode(errors='replace')[-2000:]}")
    with open(json_path) as f:
        data = json.load(f)
    for bench in data["benchmarks"]:
        if bench.get("error_occurred"):
            fail(f"bench_micro: {bench['name']}: {bench.get('error_message')}")
        bench["name"] = bench["name"].split("/iterations:")[0]
    return data["benchmarks"]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--corpus", required=True)
    parser.add_argument("--host", required=True)
    parser.add_argument("--out", required=True)
    parser.add_argument("--sizes", required=True, help="MiB, comma separated")
    parser.add_argument("--small", type=int, required=True)
    parser.add_argument("--quick", action="store_true")
    args = parser.parse_args()
    tools = Tools(args)
    os.makedirs(args.out, exist_ok=True)
    results = {"quick": args.quick, "load": {"before": " ".join(f"{x:.2f}" for x in os.getloadavg())}}

    results["big"] = []
    for size in sorted(int(s) for s in args.sizes.split(",") if s):
        package = os.path.join(tools.corpus, "big", f"big-{size}M.rpm")
        if size >= 512:
            runs = 5 if args.quick else 7
        elif size >= 64:
            runs = 5 if args.quick else 11
        else:
            runs = 11 if args.quick else 31
        print(f"measure.py: {size} MiB package, {runs} runs", file=sys.stderr)
        times = interleaved(tools, [package], runs)
        results["big"].append(summarize(times, os.path.getsize(package), 1))

    packages = sorted(glob.glob(os.path.join(tools.corpus, f"small-{args.small}", "*.rpm")))
    if len(packages) != args.small:
        fail(f"expected {args.small} small packages, found {len(packages)}")
    average = sum(os.path.getsize(p) for p in packages) / len(packages)
    runs = 5 if args.quick else 11
    print(f"measure.py: {len(packages)} small packages, {runs} runs", file=sys.stderr)
    whos = ("ours", "peer", "limit", "floor")
    results["small"] = summarize(interleaved(tools, packages, runs, whos), int(average), len(packages))
    results["startup"] = summarize(interleaved(tools, packages[:1], runs, whos), int(average), 1)
    results["marginal"] = {
        who: (results["small"][who]["median"] - results["startup"][who]["median"]) / (len(packages) - 1)
        for who in whos
    }

    print("measure.py: system calls", file=sys.stderr)
    results["syscalls"] = syscalls(tools, packages)

    big64 = os.path.join(tools.corpus, "big", "big-64M.rpm")
    copies = 4 if args.quick else 8
    jobs_runs = 1 if args.quick else 3
    print(f"measure.py: --jobs 1 and 2, {jobs_runs} runs", file=sys.stderr)
    results["jobs"] = jobs_throughput(tools, [(f"{copies} packages of 64 MiB", [big64] * copies),
                                              (f"{len(packages)} small packages", packages)], jobs_runs)

    print("measure.py: peak memory", file=sys.stderr)
    peak_runs = 3
    results["peak"] = {
        "ours": max(tools.peak_kb("ours", packages) for _ in range(peak_runs)),
        "peer": max(tools.peak_kb("peer", packages) for _ in range(peak_runs)),
        "runs": peak_runs,
    }
    count, every = (2000, 200) if args.quick else (10000, 1000)
    print(f"measure.py: memory growth over {count} verifications", file=sys.stderr)
    results["growth"] = memory_growth(tools, packages, count, every)

    print("measure.py: micro-benchmarks", file=sys.stderr)
    results["micro"] = micro(args, args.out)
    results["load"]["after"] = " ".join(f"{x:.2f}" for x in os.getloadavg())

    with open(os.path.join(args.out, "results.json"), "w") as f:
        json.dump(results, f, indent=1)
    text = report(results, args.out, args.quick)
    plot(results, args.out)
    print(text)


if __name__ == "__main__":
    main()
