#!/usr/bin/env bash
# CPU per minute of audio and peak RSS of the three ways of playing a minute of MP3, in one run:
# an HTTP stream from the local test server, the same file played locally, and libmpg123 alone;
# the players play into the virtual card's untimed variant, which drops the audio. Then the time
# to first sound of a radio-paced stream, for the player and for ffplay, each on a real-time
# virtual card: from Play (the player) or from the launch (ffplay) to the card's start.
# Usage: bench/stream_footprint.sh [BUILD_DIR]   (default: build)
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
media=$build/media
song=bench_song_180s.mp3
seconds=60
bitrate_bytes=16000                 # 128 kbit/s
rate=$((bitrate_bytes * 10))        # the server sends ten times faster than the music plays
limit=$((bitrate_bytes * seconds))

coproc SERVER { exec python3 -S "$root/tests/fixtures/servers/http_server.py" "$media"; }
read -r _ port <&"${SERVER[0]}"
trap 'kill "$SERVER_PID" 2>/dev/null || true' EXIT

url="http://127.0.0.1:$port/stream?file=$song&ct=audio/mpeg&rate=$rate&limit=$limit"
"$build/bench/korvel_stream_footprint" stream "$url" "$seconds"
"$build/bench/korvel_stream_footprint" file "$media/$song"
"$build/bench/korvel_stream_footprint" mpg123 "$media/$song"
# Time to first sound: the server sends at the music's own rate, as a radio does. ffplay plays
# through SDL's ALSA output into the same real-time card, on the channel the player uses.
radio="http://127.0.0.1:$port/stream?file=$song&ct=audio/mpeg&rate=$bitrate_bytes"
"$build/bench/korvel_stream_footprint" first "$radio"
SDL_AUDIODRIVER=alsa AUDIODEV=channel1 "$build/bench/korvel_stream_footprint" launch \
    ffplay -nodisp -autoexit -hide_banner -loglevel error "$radio" || echo "ffplay  did not start the card"
