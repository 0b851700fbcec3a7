#!/usr/bin/env bash
# What a minute of audio costs the 32-bit ARM device, counted in guest instructions under qemu-arm
# with the instruction-counting plugin bench/qemu_insn_count.c, for the armhf build:
#   (a) a local MP3 file through the direct output,
#   (b) an HTTP MP3 stream through the buffered output, resampled to 48 kHz,
#   (c) an HTTP AAC (ADTS) stream through the buffered output,
# against their floors, libmpg123 and libfdk-aac decoding the same audio alone. Every figure is the
# marginal cost of a minute: each way is run on 60 s and on 180 s of the same audio and the minute is
# the difference, so that the start (dynamic linking, opening the card, probing the stream) and the
# stop, paid once per item, are reported apart as "fixed" and do not flatter or blur the ratios.
# Instruction counts do not depend on the machine's load or speed, so the figures are comparable
# between runs; they leave out the kernel's side of system calls (counted apart) and they are the
# emulated core's instructions, not cycles: memory stalls and NEON issue rates are not in them.
#
# Then what libswresample costs in (b): the same stream from a 48 kHz source, and libswresample alone
# with the player's settings and with the alternatives it offers. Then the stripped sizes of the
# library and the demo program, and the peak memory of vendra_player playing (b) on a real-time
# virtual card under qemu (see the note printed with it).
#
# Usage: bench/footprint_armhf.sh [BUILD_DIR]   (default: build-armhf, from scripts/build.sh armhf)
# Environment: KORVEL_QEMU_CPU  the emulated core (default cortex-a7: ARMv7-A with VFPv4 and NEON,
#                               which libmpg123, libfdk-aac and libswresample detect and use)
#              KORVEL_ARMHF_SYSROOT  the armhf sysroot (default: the build's own, else what
#                                    scripts/armhf_sysroot.sh prints)
#              QEMU_PLUGIN_H   a qemu-plugin.h to build the plugin with (default: taken from the
#                              source package of the installed qemu-user, cached)
#              KORVEL_RSS_SECONDS  how long vendra_player plays for the memory figure (default 40)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-armhf}
build=$(cd "$build" && pwd)
cpu=${KORVEL_QEMU_CPU:-cortex-a7}
rss_seconds=${KORVEL_RSS_SECONDS:-40}
plugin_cache=${KORVEL_QEMU_PLUGIN_CACHE:-/var/cache/korvel-qemu-plugin}
# Where the guest's 4 GiB address space is put in qemu's own: a fixed place, so that the guest's
# pages can be told from qemu's in /proc/PID/smaps.
guest_base=0x100000000000
short=60
long=180

log() { echo "footprint_armhf: $*" >&2; }
die() { log "$*"; exit 1; }

for tool in qemu-arm arm-linux-gnueabihf-strip arm-linux-gnueabihf-gcc cc ffmpeg ffprobe python3; do
    command -v "$tool" >/dev/null || die "$tool is missing"
done
bench=$build/bench/korvel_stream_footprint
player=$build/app/vendra_player
library=$build/src/libkorvelplayer.so
vcard_tool=$build/tests/fixtures/alsa/vcard_tool
for f in "$bench" "$player" "$library" "$vcard_tool" "$build/media/bench_song_180s.mp3"; do
    [ -e "$f" ] || die "$f is missing: build the armhf flavour first (scripts/build.sh armhf)"
done
[ "$(od -An -tx1 -j18 -N1 "$bench" | tr -d ' ')" = 28 ] || die "$bench is not an ARM program"
# The sysroot the build was made against, so that the libraries run are the ones it linked.
sysroot=${KORVEL_ARMHF_SYSROOT:-$(sed -n 's/^KORVEL_ARMHF_SYSROOT:[A-Z]*=//p' "$build/CMakeCache.txt" 2>/dev/null)}
[ -n "$sysroot" ] || sysroot=$(bash "$root/scripts/armhf_sysroot.sh")

work=$(mktemp -d /tmp/korvel_footprint_armhf.XXXXXX)
SERVER_PID=
cleanup() {
    [ -z "$SERVER_PID" ] || kill "$SERVER_PID" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

# --- The plugin ----------------------------------------------------------------------------------
# qemu's plugin header is not in any Debian binary package; it comes from the source package of
# the very qemu-user installed, through a private apt configuration (the machine's own sources as
# deb-src), so that nothing of the system's apt set-up changes.
fetch_plugin_header() {
    local dest=$1 version apt_root conf
    version=$(dpkg-query -W -f='${source:Version}' qemu-user)
    apt_root=$work/apt
    mkdir -p "$apt_root/etc/apt/sources.list.d" "$apt_root/etc/apt/apt.conf.d" "$apt_root/etc/apt/preferences.d" \
        "$apt_root/var/lib/apt/lists/partial" "$apt_root/var/cache/apt/archives/partial" "$apt_root/var/lib/dpkg" \
        "$work/qemu-src"
    : > "$apt_root/var/lib/dpkg/status"
    sed 's/^Types:.*/Types: deb-src/' /etc/apt/sources.list.d/debian.sources \
        > "$apt_root/etc/apt/sources.list.d/debian.sources"
    conf=$apt_root/apt.conf
    cat > "$conf" <<EOF
Dir "$apt_root/";
Dir::State "var/lib/apt/";
Dir::State::status "$apt_root/var/lib/dpkg/status";
Dir::Cache "var/cache/apt/";
Dir::Etc "etc/apt/";
Dir::Etc::Trusted "/etc/apt/trusted.gpg";
Dir::Etc::TrustedParts "/etc/apt/trusted.gpg.d/";
Acquire::Languages "none";
APT::Sandbox::User "root";
Debug::NoLocking "true";
EOF
    log "fetching the qemu $version source package for its plugin header"
    APT_CONFIG=$conf apt-get -q update >&2 || log "apt-get update reported errors; trying anyway"
    (cd "$work/qemu-src" && APT_CONFIG=$conf apt-get -q source --download-only "qemu=$version" >&2)
    mkdir -p "$dest"
    tar -xJf "$work"/qemu-src/qemu_*.orig.tar.* -C "$work/qemu-src" --wildcards '*/include/qemu/qemu-plugin.h'
    cp "$work"/qemu-src/*/include/qemu/qemu-plugin.h "$dest/qemu-plugin.h"
    rm -rf "$work/qemu-src" "$apt_root"
}

qemu-arm -h 2>&1 | grep -q -- '^-plugin' || die "this qemu-arm was built without plugin support"
if [ -n "${QEMU_PLUGIN_H:-}" ]; then
    header_dir=$(dirname "$QEMU_PLUGIN_H")
else
    header_dir=$plugin_cache/$(dpkg-query -W -f='${source:Version}' qemu-user | tr ':' '_')
    [ -f "$header_dir/qemu-plugin.h" ] || fetch_plugin_header "$header_dir"
fi
plugin=$build/bench/libqemu_insn_count.so
cc -shared -fPIC -O2 -Wall -Wextra -I"$header_dir" -o "$plugin" "$root/bench/qemu_insn_count.c"

# --- Media: the bench song, and the same audio as AAC, at 48 kHz and as raw PCM ----------------
media=$work/media
mkdir -p "$media"
ff=(ffmpeg -nostdin -hide_banner -loglevel error -y)
song=$build/media/bench_song_180s.mp3
cp "$song" "$media/song180.mp3"
"${ff[@]}" -i "$song" -c:a copy -t "$short" "$media/song60.mp3"
"${ff[@]}" -i "$song" -c:a aac -b:a 128k -f adts "$media/song180.aac"
"${ff[@]}" -i "$media/song180.aac" -c:a copy -t "$short" -f adts "$media/song60.aac"
"${ff[@]}" -i "$song" -ar 48000 -c:a libmp3lame -b:a 128k "$media/song48_180.mp3"
"${ff[@]}" -i "$media/song48_180.mp3" -c:a copy -t "$short" "$media/song48_60.mp3"
"${ff[@]}" -i "$media/song48_180.mp3" -c:a aac -b:a 128k -f adts "$media/song48_180.aac"
"${ff[@]}" -i "$media/song48_180.aac" -c:a copy -t "$short" -f adts "$media/song48_60.aac"
"${ff[@]}" -i "$song" -f s16le -ar 44100 -ac 2 "$media/song180.s16"

coproc SERVER { exec python3 -S "$root/tests/fixtures/servers/http_server.py" "$media"; }
read -r _ port <&"${SERVER[0]}"
base_url="http://127.0.0.1:$port/stream"

# --- Counting ------------------------------------------------------------------------------------
# run NAME ARG...: the program under qemu with the plugin; sets INSNS, SYSCALLS, THREADS, WALL and
# AUDIO_S (what the program printed as audio_s=), keeping its output in $work/NAME.out.
run() {
    local name=$1 count=$work/$1.count start end
    shift
    rm -f "$count"
    start=$(date +%s.%N)
    if ! qemu-arm -cpu "$cpu" -L "$sysroot" -plugin "$plugin,outfile=$count" "$@" \
        > "$work/$name.out" 2> "$work/$name.err"; then
        log "$name failed:"; tail -n 5 "$work/$name.err" >&2; return 1
    fi
    end=$(date +%s.%N)
    read -r INSNS SYSCALLS THREADS < <(awk '{ for (i = 1; i <= NF; ++i) { split($i, kv, "="); v[kv[1]] += kv[2] } }
        END { printf "%.0f %.0f %.0f\n", v["insns"], v["syscalls"], v["threads"] }' "$count")
    WALL=$(awk -v a="$start" -v b="$end" 'BEGIN { printf "%.1f", b - a }')
    AUDIO_S=$(sed -n 's/.*audio_s=\([0-9.]*\).*/\1/p' "$work/$name.out" | tail -n 1)
    log "$(printf '%-14s %14d insns %8d syscalls %3d threads %6.1f s wall' "$name" "$INSNS" "$SYSCALLS" "$THREADS" "$WALL")"
}

declare -A PER FIXED SYS
# pair NAME SECONDS_SHORT SECONDS_LONG CMD_SHORT... -- CMD_LONG...: the marginal instructions of a
# minute of audio between the two runs, and what is left over as the once-per-item cost.
# A seconds argument "-" takes the run's own audio_s.
pair() {
    local name=$1 s1=$2 s2=$3 i1 i2 y1 y2 args1=() sys1 wall1
    shift 3
    while [ "$1" != -- ]; do args1+=("$1"); shift; done
    shift
    run "$name.$short" "${args1[@]}" || exit 1
    i1=$INSNS y1=$SYSCALLS wall1=$WALL
    [ "$s1" != - ] || s1=$AUDIO_S
    run "$name.$long" "$@" || exit 1
    i2=$INSNS y2=$SYSCALLS
    [ "$s2" != - ] || s2=$AUDIO_S
    if awk -v w="$wall1" -v v="$WALL" 'BEGIN { exit !(w > 55 || v > 55) }'; then
        log "warning: $name ran close to the test server's 60 s limit; a stream may have been cut short"
    fi
    PER[$name]=$(awk -v a="$i1" -v b="$i2" -v s="$s1" -v t="$s2" 'BEGIN { printf "%.0f", (b - a) / (t - s) * 60 }')
    FIXED[$name]=$(awk -v a="$i1" -v s="$s1" -v p="${PER[$name]}" 'BEGIN { printf "%.0f", a - p * s / 60 }')
    SYS[$name]=$(awk -v a="$y1" -v b="$y2" -v s="$s1" -v t="$s2" 'BEGIN { printf "%.0f", (b - a) / (t - s) * 60 }')
}

mp3_bps=16000  # 128 kbit/s
aac_size=$(stat -c %s "$media/song180.aac")
stream() {  # stream FILE CONTENT_TYPE BYTES_PER_SECOND SECONDS
    echo "$base_url?file=$1&ct=$2&rate=$(($3 * 10))&limit=$(awk -v b="$3" -v s="$4" 'BEGIN { printf "%d", b * s }')"
}

log "counting on an emulated $cpu; sysroot $sysroot"
pair mp3_floor - - "$bench" mpg123 "$media/song60.mp3" -- "$bench" mpg123 "$media/song180.mp3"
mp3_s60=$(sed -n 's/.*audio_s=\([0-9.]*\).*/\1/p' "$work/mp3_floor.$short.out")
mp3_s180=$(sed -n 's/.*audio_s=\([0-9.]*\).*/\1/p' "$work/mp3_floor.$long.out")
pair aac_floor - - "$bench" aac "$media/song60.aac" -- "$bench" aac "$media/song180.aac"
aac_s180=$(sed -n 's/.*audio_s=\([0-9.]*\).*/\1/p' "$work/aac_floor.$long.out")
aac_bps=$(awk -v n="$aac_size" -v s="$aac_s180" 'BEGIN { printf "%d", n / s }')

pair a_file "$mp3_s60" "$mp3_s180" "$bench" file "$media/song60.mp3" "$mp3_s60" \
    -- "$bench" file "$media/song180.mp3" "$mp3_s180"
pair b_stream "$short" "$long" "$bench" stream "$(stream song180.mp3 audio/mpeg $mp3_bps $short)" "$short" \
    -- "$bench" stream "$(stream song180.mp3 audio/mpeg $mp3_bps $long)" "$long"
pair c_aac "$short" "$long" "$bench" stream "$(stream song180.aac audio/aac "$aac_bps" $short)" "$short" \
    -- "$bench" stream "$(stream song180.aac audio/aac "$aac_bps" $long)" "$long"

# The resampler inside (b): the same stream from a 48 kHz source goes through libswresample at equal
# rates, which is a copy; the decoder's share changes with the rate, so each is taken off its floor.
pair mp3_floor48 - - "$bench" mpg123 "$media/song48_60.mp3" -- "$bench" mpg123 "$media/song48_180.mp3"
pair b_stream48 "$short" "$long" "$bench" stream "$(stream song48_180.mp3 audio/mpeg $mp3_bps $short)" "$short" \
    -- "$bench" stream "$(stream song48_180.mp3 audio/mpeg $mp3_bps $long)" "$long"
pair aac_floor48 - - "$bench" aac "$media/song48_60.aac" -- "$bench" aac "$media/song48_180.aac"
aac48_bps=$(awk -v n="$(stat -c %s "$media/song48_180.aac")" -v s="$AUDIO_S" 'BEGIN { printf "%d", n / s }')
pair c_aac48 "$short" "$long" "$bench" stream "$(stream song48_180.aac audio/aac "$aac48_bps" $short)" "$short" \
    -- "$bench" stream "$(stream song48_180.aac audio/aac "$aac48_bps" $long)" "$long"

# libswresample alone on three minutes of the song's PCM, 44.1 to 48 kHz, 16-bit stereo in and out as
# the player asks, less the same run copying instead of converting.
resamplers=(
    "default"
    "filter_size=16"
    "filter_size=8"
    "filter_size=4"
    "filter_size=2"
    "linear_interp=0"
    "exact_rational=0"
    "exact_rational=0:linear_interp=0"
    "exact_rational=0:phase_shift=6"
    "exact_rational=0:phase_shift=6:linear_interp=0"
    "filter_size=16:linear_interp=0"
    "filter_size=8:linear_interp=0"
    "internal_sample_fmt=fltp"
    "internal_sample_fmt=fltp:filter_size=16"
    "internal_sample_fmt=fltp:filter_size=8"
    "internal_sample_fmt=s32p"
    "resampler=soxr"
    "resampler=soxr:precision=16"
)
run resample.off "$bench" resample "$media/song180.s16" off || exit 1
declare -A SWR
resample_off=$INSNS
pcm_s=$AUDIO_S
for options in "${resamplers[@]}"; do
    if run "resample.$options" "$bench" resample "$media/song180.s16" "$options"; then
        SWR[$options]=$(awk -v a="$resample_off" -v b="$INSNS" -v s="$pcm_s" 'BEGIN { printf "%.0f", (b - a) / s * 60 }')
    fi
done

# --- Sizes ---------------------------------------------------------------------------------------
declare -A SIZE STRIPPED
for f in "$library" "$player"; do
    arm-linux-gnueabihf-strip -o "$work/stripped" "$f"
    SIZE[$f]=$(stat -L -c %s "$f")
    STRIPPED[$f]=$(stat -c %s "$work/stripped")
done

# --- Memory of the demo program ------------------------------------------------------------------
# qemu-user maps the guest's pages into its own address space at guest_base, one to one, so the
# resident pages of that range in qemu's smaps are the guest's own resident memory; the rest of
# qemu's RSS is the emulator (its heap, the translated code cache, its own libraries). A trivial
# armhf program run the same way gives qemu's own share for comparison.
cat > "$work/rss.py" <<'EOF'
import os, signal, subprocess, sys, time
base, seconds = int(sys.argv[1], 16), float(sys.argv[2])
def guest(pid):
    rss = anon = 0
    inside = False
    try:
        with open("/proc/%d/smaps" % pid) as f:
            for line in f:
                first = line.split(None, 1)[0]
                if "-" in first and not first.endswith(":"):
                    lo = int(first.split("-")[0], 16)
                    inside = base <= lo < base + (1 << 32)
                elif inside and first == "Rss:":
                    rss += int(line.split()[1])
                elif inside and first == "Anonymous:":
                    anon += int(line.split()[1])
    except (OSError, ValueError):
        pass
    return rss, anon
child = subprocess.Popen(sys.argv[3:], stdout=sys.stderr)
peak_rss = peak_anon = 0
until = time.monotonic() + seconds
stopped = False
while True:
    # wait4 rather than Popen.poll: the emulator's own peak RSS comes with its exit status.
    pid, status, usage = os.wait4(child.pid, os.WNOHANG)
    if pid == child.pid:
        break
    if not stopped and time.monotonic() >= until:
        child.send_signal(signal.SIGINT)
        stopped = True
    rss, anon = guest(child.pid)
    peak_rss, peak_anon = max(peak_rss, rss), max(peak_anon, anon)
    time.sleep(0.05)
child.returncode = os.waitstatus_to_exitcode(status)
print("qemu_maxrss_kb=%d guest_peak_rss_kb=%d guest_peak_anon_kb=%d exit=%d"
      % (usage.ru_maxrss, peak_rss, peak_anon, os.waitstatus_to_exitcode(status)))
EOF
printf '#include <unistd.h>\nint main(void) { sleep(2); return 0; }\n' > "$work/idle.c"
arm-linux-gnueabihf-gcc -O2 -o "$work/idle" "$work/idle.c"
rss_idle=$(python3 "$work/rss.py" "$guest_base" 10 qemu-arm -B "$guest_base" -cpu "$cpu" -L "$sysroot" "$work/idle")

mkdir -p "$work/card"
qemu-arm -cpu "$cpu" -L "$sysroot" "$vcard_tool" make "$work/card" > "$work/card.env"
alsa_config=$(sed -n 's/^ALSA_CONFIG_PATH=//p' "$work/card.env")
card_log=$(sed -n 's/^LOG=//p' "$work/card.env")
# A radio: the server sends at the music's own rate and the card plays in real time.
cat > "$work/vendra_player.conf" <<EOF
volume = 50
media_type = stream
url = $base_url?file=song180.mp3&ct=audio/mpeg&rate=$mp3_bps
EOF
rss_player=$(ALSA_CONFIG_PATH=$alsa_config VENDRA_PLAYER_CONFIG=$work/vendra_player.conf \
    VENDRA_PLAYER_STATUS=$work/status.json VENDRA_PLAYER_MEDIA_ROOT=$work/ \
    python3 "$work/rss.py" "$guest_base" "$rss_seconds" \
    qemu-arm -B "$guest_base" -cpu "$cpu" -L "$sysroot" "$player" 2> "$work/player.err" | tail -n 1)
played=$(awk '/ hw_params / { for (i = 1; i <= NF; ++i) if ($i ~ /^rate=/) rate = substr($i, 6) }
    / stop played=/ { frames += substr($3, 8) } END { printf "%.1f s at %d Hz", rate ? frames / rate : 0, rate }' "$card_log")

# --- Report --------------------------------------------------------------------------------------
m() { awk -v n="$1" 'BEGIN { printf "%.1f", n / 1e6 }'; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2fx", a / b }'; }
echo
echo "armhf, emulated $cpu: guest instructions per minute of audio (marginal, ${short} s vs ${long} s runs)"
printf '%-44s %12s %12s %12s %10s\n' "way" "M insn/min" "fixed M" "syscall/min" "vs floor"
row() { printf '%-44s %12s %12s %12s %10s\n' "$1" "$(m "${PER[$2]}")" "$(m "${FIXED[$2]}")" "${SYS[$2]}" "$3"; }
row "floor: libmpg123 alone (44.1 kHz MP3)" mp3_floor ""
row "floor: libfdk-aac alone (ADTS)" aac_floor ""
row "(a) MP3 file, direct output" a_file "$(ratio "${PER[a_file]}" "${PER[mp3_floor]}")"
row "(b) MP3 HTTP stream, buffered, 48 kHz" b_stream "$(ratio "${PER[b_stream]}" "${PER[mp3_floor]}")"
row "(c) AAC HTTP stream, buffered" c_aac "$(ratio "${PER[c_aac]}" "${PER[aac_floor]}")"
row "floor: libmpg123 alone (48 kHz MP3)" mp3_floor48 ""
row "(b) from a 48 kHz source (no resampling)" b_stream48 "$(ratio "${PER[b_stream48]}" "${PER[mp3_floor48]}")"
row "floor: libfdk-aac alone (48 kHz ADTS)" aac_floor48 ""
row "(c) from a 48 kHz source (no resampling)" c_aac48 "$(ratio "${PER[c_aac48]}" "${PER[aac_floor48]}")"
echo
# The resampler's share of a path: its overhead over its floor, less the same path's overhead from a
# 48 kHz source, where libswresample only copies.
share() {
    local above=$((PER[$1] - PER[$2])) above48=$((PER[$3] - PER[$4]))
    echo "$5 above its floor: $(m $above) M/min; from a 48 kHz source: $(m $above48) M/min;" \
        "the resampling's share: $(m $((above - above48))) M/min" \
        "($(awk -v a=$((above - above48)) -v b=$above 'BEGIN { printf "%.0f", 100 * a / b }')% of the overhead," \
        "$(awk -v a=$((above - above48)) -v b="${PER[$1]}" 'BEGIN { printf "%.0f", 100 * a / b }')% of the path)"
}
share b_stream mp3_floor b_stream48 mp3_floor48 "(b)"
share c_aac aac_floor c_aac48 aac_floor48 "(c)"
echo
echo "libswresample alone, 44.1 -> 48 kHz, s16 stereo in and out, ${pcm_s} s of audio less a plain copy"
printf '%-48s %12s %14s\n' "options" "M insn/min" "vs mp3 floor"
for options in "${resamplers[@]}"; do
    [ -n "${SWR[$options]:-}" ] || { printf '%-48s %12s\n' "$options" "failed"; continue; }
    printf '%-48s %12s %13s%%\n' "$options" "$(m "${SWR[$options]}")" \
        "$(awk -v a="${SWR[$options]}" -v b="${PER[mp3_floor]}" 'BEGIN { printf "%.1f", 100 * a / b }')"
done
echo
echo "stripped sizes (arm-linux-gnueabihf-strip)"
for f in "$library" "$player"; do
    printf '%-24s %10d bytes stripped (%d unstripped)\n' "$(basename "$f")" "${STRIPPED[$f]}" "${SIZE[$f]}"
done
echo
echo "memory under qemu-user (KiB): qemu_maxrss is the whole emulator process; guest_peak_* is the guest's"
echo "own address range in it, sampled every 50 ms (the guest's RSS as the device would count it, close to)"
echo "trivial armhf program : $rss_idle"
echo "vendra_player, (b) at radio pace for ${rss_seconds} s: $rss_player"
echo "  the card played ${played}; exit status after SIGINT: ${rss_player##*exit=} (the signal's number when stopped cleanly)"
