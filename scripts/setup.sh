# shellcheck shell=bash
#
# Sets the machine up for the build. Sourced by the commands ./run and ./test; everything here is done once
# and costs next to nothing when there is nothing left to do.
#
# Expects the variable "root", the top folder of the source tree.
: "${root:?}"

packages=(
    g++ cmake ninja-build ccache pkg-config git
    qtbase5-dev libqt5sql5-sqlite
    libopencv-dev libopencv-contrib-dev opencv-data
    libspdlog-dev libfmt-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    libmosquitto-dev prometheus-cpp-dev
    ffmpeg python3 python3-numpy python3-onnx nodejs
    # The viewer; a display without a screen and Mesa's software renderer for its tests.
    qttools5-dev qttools5-dev-tools libqt5svg5 xvfb xauth libgl1-mesa-dri fonts-wqy-microhei
)
# What the tests of a room need besides (./test --room, ./run --room): a broker, cameras of the network.
room_packages=(
    mosquitto mosquitto-clients openssl
    python3-gi gir1.2-gst-rtsp-server-1.0 gstreamer1.0-plugins-base gstreamer1.0-plugins-good
)

say() { printf '== %s\n' "$*"; }
die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

missing_packages() {
    local package
    for package in "${packages[@]}"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || echo "$package"
    done
    # Some builds of nodejs bring npm along, Debian's has it in a package of its own.
    command -v npm >/dev/null || echo npm
}

all_installed() {
    local states
    states=$(dpkg-query -W -f='${db:Status-Status}\n' "${packages[@]}" 2>/dev/null) || return 1
    ! grep -qvx installed <<<"$states" && command -v npm >/dev/null
}

can_be_root() { [ "$(id -u)" = 0 ] || command -v sudo >/dev/null; }

as_root() {
    if [ "$(id -u)" = 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

install_packages() {
    all_installed && return
    local missing
    mapfile -t missing < <(missing_packages)
    can_be_root || die "${#missing[@]} packages are missing, and only root can install them: ${missing[*]}"
    say "installing ${#missing[@]} packages and what they need: ${missing[*]}"
    as_root apt-get update -q </dev/null
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -qy --no-install-recommends "${missing[@]}" \
        </dev/null
}

# The crash dump library's sources and the learned nets, as package-lock.json pins them.
install_npm_packages() {
    [ "$root/node_modules/.package-lock.json" -nt "$root/package-lock.json" ] &&
        [ -d "$root/node_modules/minidump/deps" ] && [ -d "$root/node_modules/@vladmandic/human/models" ] &&
        [ -d "$root/node_modules/@vladmandic/face-api/model" ] && return
    say "fetching npm packages into node_modules: the crash dump library minidump and the learned nets"
    (cd "$root" && npm ci --ignore-scripts --no-audit --no-fund </dev/null) ||
        die "the packages that package-lock.json names (the crash dump library, the learned nets of the recognisers) \
could not be fetched. The first build needs the network for them; later ones don't."
    touch "$root/node_modules/.package-lock.json"
}

# The photographs of the demo class: the package is unpacked below build, not installed.
unpack_photographs() {
    local target=$root/build/opencv-doc download
    [ -e "$target/usr/share/doc/opencv-doc/opencv4/html/handSrc.jpg" ] && return
    say "fetching the photographs of the demo class, the package opencv-doc, into build; it is not installed"
    mkdir -p "$root/build"
    download=$(mktemp -d "$root/build/download.XXXXXX")
    (cd "$download" && { apt-get -q download opencv-doc ||
        { can_be_root && as_root apt-get update -q </dev/null && apt-get -q download opencv-doc; } ||
        die "the package opencv-doc cannot be fetched; the package lists may be too old"; })
    dpkg-deb -x "$download"/opencv-doc_*.deb "$download/unpacked"
    rm -rf "$target"
    mv "$download/unpacked" "$target"
    rm -rf "$download"
}

set_up() {
    command -v dpkg-query >/dev/null || die "this system has no Debian packages"
    install_packages
    install_npm_packages
    unpack_photographs
}

# What one checkout has compiled serves every other one: paths below the root count relative to it.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

# build PRESET [TARGET...]: one at a time in each build folder.
build() {
    local preset=$1 target options=()
    shift
    for target in "$@"; do
        options+=(--target "$target")
    done
    mkdir -p "$root/build"
    (
        cd "$root" || exit
        flock 8
        cmake --preset "$preset" >/dev/null 8>&-
        cmake --build --preset "$preset" "${options[@]}" 8>&-
    ) 8>"$root/build/$preset.lock"
}
