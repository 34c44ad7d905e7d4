# shellcheck shell=bash
#
# ./run --room: a room that runs itself on this machine, and what a subscriber of its broker sees. Sourced by ./run,
# after scripts/setup.sh.
: "${root:?}"

room_usage() {
    cat <<'TEXT'
Usage: ./run --room [--camera SOURCE] [--seconds N]

Installs what is missing, builds, and sets a room up from a file of ten lines: a broker (mosquitto), the camera, the
service, and the bridge between them. Shows what a subscriber of the broker sees; after half the time the service is
killed, and comes back. Files lie in build/room afterwards. Ctrl-C ends it in order.

  --camera SOURCE  an address, a device, a video or a folder of pictures instead of the demo class
  --seconds N      how long it runs (default 40)
TEXT
}

run_room() {
    local source=demo seconds=40 bin=$root/build/bin folder=$root/build/room
    while [ $# -gt 0 ]; do
        case $1 in
        --camera)
            [ $# -gt 1 ] || die "--camera needs a source"
            if [ -e "$2" ]; then source=$(realpath "$2"); else source=$2; fi
            shift
            ;;
        --seconds)
            [[ ${2-} =~ ^[0-9]+$ ]] || die "--seconds needs a whole number"
            seconds=$2
            shift
            ;;
        --help | -h)
            room_usage
            exit
            ;;
        *) die "unknown option $1; ./run --room --help tells more" ;;
        esac
        shift
    done

    packages+=("${room_packages[@]}")
    set_up
    say "building"
    build release AIService aictl camerafeed aibridge
    exec 9>"$root/build/room.lock"
    flock -n 9 || die "another run is at work in $folder"
    rm -rf "$folder"
    mkdir -m 700 "$folder"
    cd "$folder"
    export TMPDIR=$folder
    local port
    port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')

    (
        umask 077
        cat >room.conf <<TEXT
[room]
school = north
room = 101
[camera]
address = $source
[run]
analyses = hands, attention
[broker]
host = 127.0.0.1
port = $port
TEXT
    )
    say "the room's file, $folder/room.conf"
    sed 's,//.*@,//***@,' room.conf
    printf 'listener %s 127.0.0.1\nallow_anonymous true\n' "$port" >mosquitto.conf
    [ "$(id -u)" != 0 ] || echo "user root" >>mosquitto.conf

    room_pids=()
    trap end_room EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM
    room_start broker "$(PATH=$PATH:/usr/sbin command -v mosquitto)" -c mosquitto.conf
    until (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; do
        room_alive broker
        sleep 0.1
    done
    room_start camera "$bin/camerafeed" --config room.conf --log noise.txt
    until grep -q writing camera.txt; do
        room_alive camera
        sleep 0.1
    done
    room_start service "$bin/AIService"
    room_start bridge "$bin/aibridge" room.conf

    say "what a subscriber sees: mosquitto_sub -V 5 -p $port -t 'classroom/#' -v"
    timeout $((seconds / 2)) mosquitto_sub -V 5 -p "$port" -t 'classroom/#' -v || true
    say "looking, and leaving, ends nothing: aictl status"
    "$bin/aictl" status
    say "what the service does: aictl top --once"
    "$bin/aictl" top --once
    say "the service is killed with signal 9 and started with --recovery, as its unit does"
    kill -KILL "${room_pids[2]}"
    wait "${room_pids[2]}" 2>/dev/null || true
    rm -f AI
    room_start service "$bin/AIService" --recovery
    timeout $((seconds - seconds / 2)) mosquitto_sub -V 5 -p "$port" -t 'classroom/#' -v || true
    say "done; everything lies in $folder"
}

# room_start NAME COMMAND...: in a session of its own, so that Ctrl-C goes to the script alone.
room_start() {
    local name=$1
    shift
    setsid "$@" >"$name.txt" 2>&1 </dev/null 9>&- &
    room_pids+=($!)
}

room_alive() {
    kill -0 "${room_pids[-1]}" 2>/dev/null || die "the $1 does not start: $(tail -n 3 "$1.txt")"
}

# The bridge, the service, then the camera, which a close may wait for; the broker last.
end_room() {
    trap '' INT TERM
    local i
    [ ${#room_pids[@]} -lt 4 ] || kill -TERM "${room_pids[3]}" 2>/dev/null || true
    timeout 20 "$root/build/bin/aictl" --direct quit >/dev/null 2>&1 || true
    for ((i = ${#room_pids[@]} - 1; i >= 0; --i)); do
        kill -TERM "${room_pids[i]}" 2>/dev/null || true
        wait "${room_pids[i]}" 2>/dev/null || true
    done
}
