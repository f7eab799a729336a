# Sourced by the scripts beside this folder: the repository as working directory, and packages on demand.

cd "$(dirname "${BASH_SOURCE[0]}")/../.."

jobs=$(nproc)

die()
{
    echo "$(basename "$0"): $*" >&2
    exit 1
}

# install_missing PACKAGE...: installs those of the packages that are not there, and asks for nothing if all are.
install_missing()
{
    local package missing=() as_root=()
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
