#!/usr/bin/env bash
# Builds the benchmarks (preset `bench`: Release, DD_BUILD_BENCH=ON, no tests)
# and prints the table of medians with the ratios to the baselines.
#
#   scripts/bench.sh            5 repetitions, medians, ratios (a few minutes)
#   scripts/bench.sh --smoke    every benchmark once with a short minimum time;
#                               fails only when one cannot run, never on timings
#   scripts/bench.sh -- ARGS    extra Google Benchmark arguments for dd_bench
#                               (e.g. -- --benchmark_filter=proxy/remote)
#
# The raw results of a full run are kept in build/bench/bench.json. A full run
# installs the gRPC development packages when they are missing (Debian, as
# root) so that the gRPC peer is measured next to the proxy.
set -euo pipefail
cd "$(dirname "$0")/.."

mode=full
extra=()
while [[ $# -gt 0 ]]; do
    case "$1" in
        --smoke) mode=smoke ;;
        --) shift; extra=("$@"); break ;;
        -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
        *) echo "bench.sh: unknown argument $1" >&2; exit 2 ;;
    esac
    shift
done

# The gRPC peer is built only when its development packages are there. A
# full run installs them when they are missing (Debian, as root); the smoke
# run never does, and without them the peer is simply not measured.
grpc_present() {
    pkg-config --exists grpc++ protobuf 2>/dev/null && command -v protoc >/dev/null && command -v grpc_cpp_plugin >/dev/null
}
if [[ $mode == full ]] && ! grpc_present; then
    if [[ $(id -u) == 0 ]] && command -v apt-get >/dev/null; then
        echo "bench.sh: installing the gRPC development packages for the peer benchmark" >&2
        DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
            libgrpc++-dev protobuf-compiler-grpc libprotobuf-dev protobuf-compiler >/dev/null ||
            echo "bench.sh: could not install them; the gRPC peer is not measured" >&2
    else
        echo "bench.sh: gRPC development packages missing; the gRPC peer is not measured" >&2
    fi
fi

cmake --preset bench >/dev/null
cmake --build --preset bench -j2

bin=build/bench/bin
out=build/bench/bench.json
# The gRPC peer's results, when dd_bench_grpc was built.
grpc_out=build/bench/bench_grpc.json
rm -f "$grpc_out"
if [[ $mode == smoke ]]; then
    "$bin/dd_bench" --benchmark_min_time=0.001 --benchmark_out="$out" --benchmark_out_format=json \
        "${extra[@]}" >/dev/null
    if [[ -x $bin/dd_bench_grpc ]]; then
        "$bin/dd_bench_grpc" --benchmark_min_time=0.001 --benchmark_out="$grpc_out" --benchmark_out_format=json \
            >/dev/null
    fi
    "$bin/dd_bench_memory"
    python3 - "$out" "$grpc_out" <<'PY'
import json, os, sys
runs = json.load(open(sys.argv[1]))["benchmarks"]
if os.path.exists(sys.argv[2]):
    runs += json.load(open(sys.argv[2])).get("benchmarks", [])
failed = [r["name"] for r in runs if r.get("error_occurred")]
for name in failed:
    print("bench.sh: benchmark failed to run:", name, file=sys.stderr)
print(f"bench.sh --smoke: {len(runs)} benchmarks ran, {len(failed)} failed")
sys.exit(1 if failed else 0)
PY
    exit $?
fi

load_before=$(uptime)
repeat=(--benchmark_repetitions=5 --benchmark_report_aggregates_only=true
    --benchmark_enable_random_interleaving=true --benchmark_min_time=0.3)
"$bin/dd_bench" "${repeat[@]}" --benchmark_out="$out" --benchmark_out_format=json "${extra[@]}" >/dev/null
if [[ -x $bin/dd_bench_grpc ]]; then
    "$bin/dd_bench_grpc" "${repeat[@]}" --benchmark_out="$grpc_out" --benchmark_out_format=json "${extra[@]}" \
        >/dev/null
fi
memory=$("$bin/dd_bench_memory")
load_after=$(uptime)
python3 - "$out" "$grpc_out" "$memory" "$load_before" "$load_after" <<'PY'
import json, os, re, sys

data = json.load(open(sys.argv[1]))
benchmarks = list(data["benchmarks"])
if os.path.exists(sys.argv[2]):
    benchmarks += json.load(open(sys.argv[2])).get("benchmarks", [])
memory = sys.argv[3]
med = {}
extra = {}
for r in benchmarks:
    if r.get("aggregate_name") != "median":
        continue
    name = r["run_name"]
    scale = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}[r["time_unit"]]
    med[name] = r["real_time"] * scale  # microseconds
    extra[name] = r

def find(prefix):
    # The exact name, else the one name that extends it by a "/" suffix
    # (an argument or a time mode), never a longer name that merely starts
    # the same ("proxy/remote/GetDeviceSwitch" is not "..._throughput").
    if prefix in med:
        return prefix
    hits = sorted(n for n in med if n.startswith(prefix + "/") or (prefix.endswith("/") and n.startswith(prefix)))
    return hits[0] if hits else None

print(f"# {data['context']['date']}  {data['context']['num_cpus']} CPUs")
print(f"# uptime before: {sys.argv[4].strip()}")
print(f"# uptime after:  {sys.argv[5].strip()}")
if not os.path.exists(sys.argv[2]):
    print("# gRPC peer not built (see docs/performance.md)")
print(f"{'benchmark':<72} {'median':>12}")
for name in sorted(med):
    r = extra[name]
    note = ""
    if "items_per_second" in r:
        note += f"  {r['items_per_second']:,.0f} calls/s"
    if "errors" in r:
        note += f"  errors={r['errors']:.0f}"
    if "log_lines" in r:
        note += f"  log_lines={r['log_lines']:.0f}"
    value = med[name]
    text = f"{value*1000:.2f} ns" if value < 1 else f"{value:.2f} us"
    print(f"{name:<72} {text:>12}{note}")

print()
print("ratios of medians (target in brackets)")
def ratio(label, num, den, target=None):
    a, b = find(num), find(den)
    if a is None or b is None:
        print(f"  {label}: not measured")
        return
    t = f" [<= {target}]" if target else ""
    print(f"  {label}: {med[a]/med[b]:.2f}x{t}")
ratio("small call across processes / raw ping-pong", "proxy/remote/GetDeviceSwitch", "baseline/pingpong/GetDeviceSwitch_sizes", 1.3)
ratio("small call across processes / ping-pong with poll+epoll", "proxy/remote/GetDeviceSwitch", "baseline/pingpong_poll_epoll/GetDeviceSwitch_sizes")
ratio("1024-device list across processes / raw ping-pong", "proxy/remote/GetTrustedDeviceList/1024", "baseline/pingpong/GetTrustedDeviceList_sizes/1024", 2)
ratio("1024-device list across processes / ping-pong with poll+epoll", "proxy/remote/GetTrustedDeviceList/1024", "baseline/pingpong_poll_epoll/GetTrustedDeviceList_sizes/1024")
ratio("1024-device list in process / memcpy of the reply", "proxy/inproc/GetTrustedDeviceList/1024", "baseline/memcpy")
ratio("1024 DeviceInfo decode / memcpy of the reply", "codec/list/DeviceInfo/decode", "baseline/memcpy")
ratio("small call beside a flooding client / small call alone", "proxy/remote/GetDeviceSwitch_beside_flooder", "proxy/remote/GetDeviceSwitch", 1.5)
ratio("callback latency / raw ping-pong", "proxy/remote/callback_latency", "baseline/pingpong/GetDeviceSwitch_sizes")
for n in (1, 10, 100):
    ratio(f"world change to the last of {n} healthy watchers: 10 frozen beside them / none",
          f"service/fanout/healthy:{n}/frozen:10", f"service/fanout/healthy:{n}/frozen:0", 1.2)
ratio("small call across processes / gRPC unary call of the same sizes", "proxy/remote/GetDeviceSwitch", "peer/grpc/unary_small_sizes")
ratio("1024-device list across processes / gRPC unary call of the same 1024 records", "proxy/remote/GetTrustedDeviceList/1024", "peer/grpc/unary_TrustedDeviceList/1024", 0.125)
a, b = find("peer/grpc/unary_TrustedDeviceList"), find("proxy/remote/GetTrustedDeviceList/1024")
if a and b:
    print(f"  gRPC 1024 records / our 1024-device list: {med[a]/med[b]:.2f}x faster [>= 8x]; "
          f"against the 842 us quoted for gRPC: {842/med[b]:.2f}x")
f = find("log/info_below_threshold")
if f:
    print(f"  filtered INFO line: {med[f]*1000:.2f} ns [< 5 ns]")
for key in ("proxy/remote/GetDeviceSwitch_throughput", "proxy/remote/GetDeviceSwitch_2processes"):
    f = find(key)
    if f:
        r = extra[f]
        print(f"  {key}: {r.get('items_per_second', 0):,.0f} calls/s, errors {r.get('errors', 0):.0f} [>= 20,000 calls/s, 0 errors]")
print()
print(memory.strip())
PY
