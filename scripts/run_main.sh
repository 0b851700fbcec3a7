#!/usr/bin/env bash
# The product's main job on a development machine: installs and builds if needed, makes a small
# demo media folder and a configuration for it, and runs vendra_player on a virtual sound card until
# the playlist has played once; then stops it with SIGINT as a device's service manager would and
# says where the recording (WAV) and the status file are. On a device the same program runs with
# /etc/vendra_player.conf and the real ALSA set-up (see config/).
# Usage: bash scripts/run_main.sh [WORK_DIR]   (default: build/demo)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
build=$(bash "$root/scripts/build.sh" plain)
work=${1:-$build/demo}
tracks=3
track_seconds=4
max_wait_seconds=$((tracks * track_seconds * 3 + 10))
card_buffer_seconds=1.2

rm -rf "$work"
mkdir -p "$work/media/demo" "$work/card"

# A few short tagged tracks: one chord each, so that the recording shows which one played.
notes=("261.6 329.6 392.0" "293.7 370.0 440.0" "329.6 415.3 493.9")
titles=("Morning" "Noon" "Evening")
for n in $(seq 1 "$tracks"); do
    read -r a b c <<<"${notes[n - 1]}"
    ffmpeg -nostdin -hide_banner -loglevel error -y -f lavfi \
        -i "aevalsrc=0.2*sin(2*PI*$a*t)+0.2*sin(2*PI*$b*t)+0.2*sin(2*PI*$c*t):s=44100:d=$track_seconds" \
        -ac 2 -c:a libmp3lame -b:a 128k -metadata title="${titles[n - 1]}" -metadata artist="Demo Band" \
        "$work/media/demo/0$n-${titles[n - 1],,}.mp3"
done

cat >"$work/vendra_player.conf" <<EOF
; The demo: the MP3 files of the folder "demo" below the media root, at 80 % volume.
volume = 80
media_type = folder
media_folder = demo
EOF

eval "$("$build/tests/fixtures/alsa/vcard_tool" make "$work/card" | sed 's/^/export /')"

export VENDRA_PLAYER_CONFIG=$work/vendra_player.conf
export VENDRA_PLAYER_MEDIA_ROOT=$work/media
export VENDRA_PLAYER_STATUS=$work/vendra_player.status
"$build/app/vendra_player" >"$work/console.log" 2>&1 &
player=$!

# The playlist repeats for ever: once every track has finished, it has played once.
for _ in $(seq 1 $((max_wait_seconds * 10))); do
    finished=$(grep -c "NotifyTrackPlaybackFinished(.*) received" "$work/console.log" || true)
    [ "$finished" -ge "$tracks" ] && break
    kill -0 "$player" 2>/dev/null || break
    sleep 0.1
done
# A track has finished once it is all written; the card plays up to a second more of it.
sleep "$card_buffer_seconds"
kill -INT "$player" 2>/dev/null || true
status=0
wait "$player" || status=$?

seconds=$("$build/tests/fixtures/alsa/vcard_tool" wav "$CAPTURE" "$LOG" "$work/demo.wav")
echo
echo "vendra_player played $finished of $tracks tracks and exited with status $status (2: stopped by SIGINT)."
echo "  console:      $work/console.log"
echo "  status file:  $VENDRA_PLAYER_STATUS"
echo "                $(cat "$VENDRA_PLAYER_STATUS" 2>/dev/null || echo '(none)')"
echo "  recording:    $work/demo.wav ($seconds s of audio)"
[ "$status" -eq 2 ] && [ "$finished" -ge "$tracks" ]
