# Sourced by ./run and ./test: puts on this machine what they need, with apt-get, and nothing when
# all is there. Arguments: the Debian packages.
setup_machine() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "These packages are missing and there is no sudo to install them: ${missing[*]}" >&2
            return 1
        }
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update &&
           "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
               apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        echo "apt-get could not install: ${missing[*]}" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"
}

PACKAGES_RUN=(g++ cmake ninja-build libgtest-dev libtomlplusplus-dev bubblewrap tar gzip)
PACKAGES_TEST=("${PACKAGES_RUN[@]}" clang-format clang-tidy g++-arm-linux-gnueabihf)
PACKAGES_FUZZ=("${PACKAGES_RUN[@]}" clang-14 libclang-rt-14-dev llvm-14)
