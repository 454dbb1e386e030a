#!/usr/bin/env bash
# Whole jobs, file to file, of zuc against sox and ffmpeg: interleaved, pinned to one processor.
#
# Usage: benchmarks/peers.sh [-r ROUNDS] [-c CPU] [-m MINUTES] [JOB...]
#
# Prints for each job and tool the median CPU time (user and system), its range, the peak memory, and the
# ratio of zuc's median to that tool's. A tool that is not installed is left out. Jobs: the names below.
set -euo pipefail

rounds=9
cpu=1
minutes=10
while getopts r:c:m: option; do
    case $option in
    r) rounds=$OPTARG ;;
    c) cpu=$OPTARG ;;
    m) minutes=$OPTARG ;;
    *) exit 2 ;;
    esac
done
shift $((OPTIND - 1))

root=$(cd "$(dirname "$0")/.." && pwd)
zuc=$root/build/release/bin/zuc
[ -x "$zuc" ] || { echo "peers.sh: build first: scripts/test" >&2; exit 2; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

ffmpeg_job() { echo "ffmpeg -nostdin -loglevel error -threads 1 -filter_threads 1 -y -i $1 -af $2 -c:a $3 $work/out.wav"; }

# One line a job: name, input, tool, command.
jobs() {
    local float=$work/float.wav int=$work/int16.wav
    cat <<TABLE
gain-float	$float	zuc	$zuc process $float $work/out.wav -y -q -e amplify:gain=-3dB
gain-float	$float	sox	sox -V1 $float -b 32 -e floating-point $work/out.wav vol -3dB
gain-float	$float	ffmpeg	$(ffmpeg_job "$float" volume=-3dB:precision=float pcm_f32le)
gain-16bit	$int	zuc	$zuc process $int $work/out.wav -y -q -e amplify:gain=-3dB
gain-16bit	$int	sox	sox -V1 $int -b 16 $work/out.wav vol -3dB
gain-16bit	$int	ffmpeg	$(ffmpeg_job "$int" volume=-3dB:precision=float pcm_s16le)
$(extra_jobs "$float")
TABLE
}

# Jobs of further effects; each group compares like with like.
extra_jobs() {
    local compressor=acompressor=threshold=0.1:ratio=3:attack=5:release=100
    local bells='' sox_bells='' ffmpeg_bells='' band=0 hz
    for hz in 100 300 1000 3000 10000; do
        band=$((band + 1))
        bells+=,band-$band=on,band-$band-type=bell,band-$band-frequency=${hz}Hz,band-$band-gain=4dB,band-$band-q=1
        sox_bells+=" equalizer $hz 1q 4"
        ffmpeg_bells+=,equalizer=f=$hz:t=q:w=1:g=4:r=f32
    done
    local sox_chorus='chorus 0.7 0.7 21 0.3 0.6 1 -s 23 0.3 0.6 1 -s 25 0.3 0.6 1 -s 27 0.3 0.6 1 -s'
    local ffmpeg_chorus='chorus=0.7:0.7:21|23|25|27:0.3|0.3|0.3|0.3:0.6|0.6|0.6|0.6:1|1|1|1'
    cat <<TABLE
compressor	$1	zuc	$zuc process $1 $work/out.wav -y -q -e dynamics:high-cutoff=24kHz,location-3=-0dB,value-3=-14dB
compressor	$1	sox	sox -V1 $1 -b 32 -e floating-point $work/out.wav compand 0.005,0.1 -100,-100,-20,-20,0,-14
compressor	$1	ffmpeg	$(ffmpeg_job "$1" "$compressor" pcm_f32le)
copy-float	$1	zuc	$zuc process $1 $work/out.wav -y -q
copy-float	$1	sox	sox -V1 $1 -b 32 -e floating-point $work/out.wav
copy-float	$1	ffmpeg	$(ffmpeg_job "$1" anull pcm_f32le)
equalizer	$1	zuc	$zuc process $1 $work/out.wav -y -q -e parametric-equalizer:${bells#,}
equalizer	$1	sox	sox -V1 $1 -b 32 -e floating-point $work/out.wav $sox_bells
equalizer	$1	ffmpeg	$(ffmpeg_job "$1" "${ffmpeg_bells#,}" pcm_f32le)
chorus	$1	zuc	$zuc process $1 $work/out.wav -y -q --tail none -e chorus:drift=0
chorus	$1	sox	sox -V1 $1 -b 32 -e floating-point $work/out.wav $sox_chorus
chorus	$1	ffmpeg	$(ffmpeg_job "$1" "$ffmpeg_chorus" pcm_f32le)
limiter	$1	zuc	$zuc process $1 $work/out.wav -y -q -e hard-limiter:drive=10dB
limiter	$1	alimiter	$(ffmpeg_job "$1" alimiter=level_in=3.162:limit=0.891:level=0 pcm_f32le)
leveler	$1	zuc	$zuc process $1 $work/out.wav -y -q -e speech-volume-leveler:preset=Strong
leveler	$1	speechnorm	$(ffmpeg_job "$1" speechnorm=e=12:l=1 pcm_f32le)
leveler	$1	dynaudnorm	$(ffmpeg_job "$1" dynaudnorm pcm_f32le)
leveler	$1	loudnorm	$(ffmpeg_job "$1" loudnorm=I=-18:TP=-1,aresample=48000:ochl=stereo pcm_f32le)
loudness	$1	zuc	$zuc process $1 $work/out.wav -y -q --measure
loudness	$1	ebur128	$(ffmpeg_job "$1" ebur128=peak=true:framelog=verbose pcm_f32le)
TABLE
}

make_input() { # channels of unequal noise and tones, at a level that does not clip
    sox -V1 -R -n -r 48000 -c 2 "$@" synth $((minutes * 60)) pinknoise sine 220 gain -12
}

run_once() { # command -> "cpu-seconds peak-kB"
    local figures=$work/figures
    # shellcheck disable=SC2086  # the command is words, not a path
    taskset -c "$cpu" /usr/bin/time -q -o "$figures" -f '%U %S %M' $1 >/dev/null 2>&1
    awk '{print $1 + $2, $3}' "$figures"
}

median() { sort -n | awk '{a[NR] = $1} END {print a[int((NR + 1) / 2)]}'; }

measure() { # job
    local job=$1 tool command
    local -a tools=() commands=()
    while IFS=$'\t' read -r name _ tool command; do
        if [ "$name" = "$job" ] && command -v "${command%% *}" >/dev/null; then
            tools+=("$tool")
            commands+=("$command")
        fi
    done < <(jobs)
    for i in "${!tools[@]}"; do run_once "${commands[i]}" >/dev/null; done
    for ((round = 0; round < rounds; ++round)); do
        for i in "${!tools[@]}"; do run_once "${commands[i]}" >>"$work/$job.${tools[i]}"; done
    done
    local ours
    ours=$(cut -d' ' -f1 "$work/$job.zuc" | median)
    for tool in "${tools[@]}"; do
        awk -v job="$job" -v tool="$tool" -v ours="$ours" \
            -v median="$(cut -d' ' -f1 "$work/$job.$tool" | median)" \
            '{if (NR == 1 || $1 < lo) lo = $1; if ($1 > hi) hi = $1; if ($2 > kb) kb = $2}
             END {printf "%-12s %-8s cpu %6.2f s (%.2f to %.2f)  peak %5.1f MB  zuc / %s = %.2f\n",
                  job, tool, median, lo, hi, kb / 1024, tool, ours / median}' "$work/$job.$tool"
    done
}

make_input -b 32 -e floating-point "$work/float.wav"
make_input -b 16 "$work/int16.wav"
echo "$minutes minutes of stereo at 48 kHz, $rounds rounds on processor $cpu, load $(cut -d' ' -f1 /proc/loadavg)"
mapfile -t names < <(jobs | cut -f1 | awk 'NF && !seen[$0]++')
for job in "${@:-${names[@]}}"; do measure "$job"; done
