# Sourced by the scripts beside this folder: the repository as working directory, and packages on demand.

cd "$(dirname "${BASH_SOURCE[0]}")/../.."

jobs=$(nproc)

die()
{
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# command_of PACKAGE: the command that a package is wanted for, nothing where it is a library.
command_of()
{
    case $1 in
        ninja-build) echo ninja ;;
        g++-mingw-w64-x86-64-posix) echo x86_64-w64-mingw32-g++-posix ;;
        dpkg-dev) echo dpkg-shlibdeps ;;
        locales) echo localedef ;;
        wine64) ;; # Which names its program has, run-wine knows.
        googletest | lib* | *-dev) ;;
        *) echo "$1" ;;
    esac
}

# require_commands PACKAGE...: where packages cannot be installed, goes on if the commands that are wanted are there.
require_commands()
{
    local package command missing=()
    for package in "$@"; do
        command=$(command_of "$package")
        if [ -n "$command" ] && ! command -v "$command" >/dev/null; then
            missing+=("$command")
        fi
    done
    echo "$(basename "$0"): needs these Debian packages or their like: $*; there is no apt-get here" >&2
    if [ ${#missing[@]} -ne 0 ]; then
        die "these commands are missing: ${missing[*]} (with TARVO_NO_INSTALL=1 nothing is checked)"
    fi
}

# install_missing PACKAGE...: installs those of the packages that are not there, and asks for nothing if all are. With
# TARVO_NO_INSTALL=1 it takes them for installed.
install_missing()
{
    local package missing=() as_root=()
    if [ -n "${TARVO_NO_INSTALL:-}" ]; then
        return
    fi
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        require_commands "$@"
        return
    fi
    for package in "$@"; do
        if [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return
    fi
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            die "these packages are missing: ${missing[*]}; install them as root, or run this script as root"
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { "${as_root[@]}" apt-get update &&
        "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
            "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        die "apt-get could not install ${missing[*]}"
    fi
    rm -f "$log"
}

# list_sources PATTERN...: the files of the repository that match, one a line: those of git and new ones it would take.
list_sources()
{
    local file
    git ls-files --cached --others --exclude-standard -- "$@" | sort -u | while IFS= read -r file; do
        if [ -f "$file" ]; then
            echo "$file"
        fi
    done
}
