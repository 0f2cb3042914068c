#!/usr/bin/env bash
# Whole process against whole process: qvdsp beside the tools users would
# otherwise run for the same job, on ten minutes of 48 kHz stereo float noise.
# Each pair runs in turn (hyperfine times one command after another, so each
# command is timed alone, pair after pair, ROUNDS times) and the medians
# are printed side by side.
#
# usage: bench/compare-peers.sh QVDSP [CASE...]
#   CASE: headphones tempo peq10 conv65536 conv262144 (default: all)
#   ROUNDS (default 5), SECONDS_OF_AUDIO (default 600), WORK (default a fresh temp dir)
set -euo pipefail

qvdsp=$(realpath "$1")
shift
cases=("$@")
[[ ${#cases[@]} -gt 0 ]] || cases=(headphones tempo peq10 conv65536 conv262144)
rounds=${ROUNDS:-5}
seconds=${SECONDS_OF_AUDIO:-600}
work=${WORK:-$(mktemp -d)}
mkdir -p "$work"
export QVDSP_SETTINGS="$work/settings.json"
ff=(ffmpeg -nostdin -hide_banner -loglevel error -y)

make_noise() {
  local out=$work/noise.wav
  [[ -s $out ]] || "${ff[@]}" -filter_complex \
    "anoisesrc=d=$seconds:r=48000:a=0.3:seed=1[a];anoisesrc=d=$seconds:r=48000:a=0.3:seed=2[b];[a][b]amerge=inputs=2" \
    -c:a pcm_f32le "$out"
}

# A decaying noise burst per channel, different on the two channels, as a
# measured room filter would be.
make_impulse() {
  local taps=$1 out=$work/impulse-$1.wav
  local len
  len=$(awk -v t="$taps" 'BEGIN { printf "%.9f", t / 48000 }')
  [[ -s $out ]] || "${ff[@]}" -filter_complex \
    "anoisesrc=d=$len:r=48000:a=0.5:seed=3,volume='exp(-t*8)':eval=frame,aformat=sample_fmts=flt:channel_layouts=mono[a];anoisesrc=d=$len:r=48000:a=0.5:seed=4,volume='exp(-t*8)':eval=frame,aformat=sample_fmts=flt:channel_layouts=mono[b];[a][b]amerge=inputs=2,atrim=end_sample=$taps" \
    -c:a pcm_f32le "$out"
}

# Runs the commands in alternation, ROUNDS times each, and prints the median
# wall time of each command in seconds.
compare() {
  local name=$1
  shift
  local json=$work/$name.json
  hyperfine --style none --warmup 1 --runs 1 --export-json /dev/null "$@" > /dev/null
  local -a times=()
  for ((r = 0; r < rounds; r++)); do
    for cmd in "$@"; do
      hyperfine --style none --runs 1 --export-json "$json" "$cmd" > /dev/null
      times+=("$(python3 -c 'import json,sys; print(json.load(open(sys.argv[1]))["results"][0]["mean"])' "$json")")
    done
  done
  python3 - "$name" "$seconds" "${#@}" "${times[@]}" "$@" <<'EOF'
import statistics, sys
name, seconds, n = sys.argv[1], float(sys.argv[2]), int(sys.argv[3])
times = [float(t) for t in sys.argv[4:-n]]
commands = sys.argv[-n:]
medians = [statistics.median(times[i::n]) for i in range(n)]
print(f"== {name}")
for cmd, m in zip(commands, medians):
    print(f"  {m:8.3f} s  {seconds / m:7.0f}x real time  {cmd}")
for cmd, m in zip(commands[1:], medians[1:]):
    print(f"  ratio to first: {m / medians[0]:.2f}  ({cmd.split()[0]})")
EOF
}

run_headphones() {
  "$qvdsp" headphones preset Standard > /dev/null
  compare headphones \
    "$qvdsp process --quiet --chain Headphones $work/noise.wav $work/out-qvdsp.wav" \
    "${ff[*]} -i $work/noise.wav -af crossfeed -c:a pcm_f32le $work/out-ffmpeg.wav"
}

run_tempo() {
  "$qvdsp" tempo set --tempo 1.25 > /dev/null
  compare tempo \
    "$qvdsp process --quiet --chain 4 $work/noise.wav $work/out-qvdsp.wav" \
    "soundstretch $work/noise.wav $work/out-soundstretch.wav -tempo=25" \
    "${ff[*]} -i $work/noise.wav -af atempo=1.25 -c:a pcm_f32le $work/out-ffmpeg.wav"
  "$qvdsp" tempo reset > /dev/null
}

run_peq10() {
  local freqs=(31 62 125 250 500 1000 2000 4000 8000 16000)
  local gains=(-1.5 1 2 -2 1.5 -1 2.5 -2.5 1 -1)
  local chain=""
  "$qvdsp" peq clear > /dev/null 2>&1 || true
  for i in "${!freqs[@]}"; do
    "$qvdsp" peq add peak "Frequency=${freqs[$i]}" "Gain=${gains[$i]}" Q=1.4 > /dev/null
    chain+="${chain:+,}equalizer=f=${freqs[$i]}:t=q:w=1.4:g=${gains[$i]}"
  done
  compare peq10 \
    "$qvdsp process --quiet --chain 8 $work/noise.wav $work/out-qvdsp.wav" \
    "${ff[*]} -filter_threads 1 -i $work/noise.wav -af $chain -c:a pcm_f32le $work/out-ffmpeg.wav"
}

run_conv() {
  local taps=$1
  make_impulse "$taps"
  "$qvdsp" convolution set "$work/impulse-$taps.wav" > /dev/null
  "$qvdsp" convolution normalize off > /dev/null
  compare "conv$taps" \
    "$qvdsp process --quiet --chain Convolution $work/noise.wav $work/out-qvdsp.wav" \
    "${ff[*]} -i $work/noise.wav -i $work/impulse-$taps.wav -filter_complex [0:a][1:a]afir -c:a pcm_f32le $work/out-ffmpeg.wav"
}

make_noise
for c in "${cases[@]}"; do
  case $c in
    headphones | tempo | peq10) "run_$c" ;;
    conv65536 | conv262144) run_conv "${c#conv}" ;;
    *) echo "unknown case: $c" >&2; exit 2 ;;
  esac
done
