# Sourced by ./run and ./test: installs what is missing (as root on Debian) and builds a preset.

vimbo_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What the build needs, and the independent programs that tests compare with.
vimbo_packages=(
    g++ cmake ninja-build ccache clang-14 libclang-rt-14-dev clang-format-14
    libfmt-dev libutfcpp-dev libcli11-dev nlohmann-json3-dev libtomlplusplus-dev libgtest-dev libbenchmark-dev
    pkg-config libflac-dev libvorbis-dev libogg-dev libmp3lame-dev libtwolame-dev
    sox ffmpeg sndfile-programs flac vorbis-tools sfarkxtc fluidsynth gigtools timgm6mb-soundfont libspandsp-dev time
    lame mpg123 midicsv wildmidi libwildmidi-config openttd-openmsx
)

install_packages() {
    local missing=() package
    for package in "${vimbo_packages[@]}"; do
        dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null | grep -q '^installed$' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ] || ! command -v apt-get >/dev/null; then
        echo "setup: please install: ${missing[*]}" >&2
        return 1
    fi
    echo "setup: installing ${missing[*]}" >&2
    { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } \
        >&2 </dev/null
}

# build_preset PRESET [TARGET...]: configures when needed, builds; quick when nothing changed.
build_preset() {
    local preset=$1
    shift
    local folder=$vimbo_root/build/$preset log
    [ -e "$folder/.packages" ] && [ "$folder/.packages" -nt "$vimbo_root/scripts/setup.sh" ] || install_packages || return 1
    [ -e "$folder/build.ninja" ] || (cd "$vimbo_root" && cmake --preset "$preset") >&2 || return 1
    touch "$folder/.packages"
    log=$folder/last_build.log
    if [ -t 2 ]; then
        cmake --build "$folder" ${1:+--target "$@"} >&2
    elif ! cmake --build "$folder" ${1:+--target "$@"} >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        return 1
    fi
}
