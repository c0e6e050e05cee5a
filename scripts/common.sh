# Sourced by the other scripts: goes to the project's root and offers a few functions. Chatter goes to stderr, so that
# a script's stdout is its result alone.
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# What two build directories compile with the same options, such as the tests of dev and asan, is compiled once.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

# say TEXT: one line for the user.
say() {
    printf '%s\n' "$*" >&2
}

# step LOG LABEL COMMAND...: runs the command with its output in the log and a short line on the terminal; when it
# fails, shows the end of the log and ends the script.
step() {
    local log=$1 label=$2 began=$SECONDS
    shift 2
    mkdir -p "$(dirname "$log")"
    printf '%s ...' "$label" >&2
    printf '\n== %s: %s\n' "$label" "$*" >>"$log"
    if "$@" </dev/null 2>&1 | tee -a "$log" | show_progress "$label"; then
        say " done ($((SECONDS - began)) s)"
    else
        say " failed"
        say "-- the end of $log:"
        tail -n 60 "$log" >&2
        exit 1
    fi
}

# Shows ninja's counter on a terminal; elsewhere nothing.
show_progress() {
    local line
    while IFS= read -r line; do
        if [[ -t 2 && $line =~ ^\[[0-9]+/[0-9]+\] ]]; then
            printf '\r\033[K%s ... %s' "$1" "${BASH_REMATCH[0]}" >&2
        fi
    done
}

# sources [DIRECTORY...]: C++ files of the project, tracked ones and new ones that git does not ignore; one a line.
sources() {
    if git -c safe.directory="$PWD" rev-parse --git-dir >/dev/null 2>&1; then
        git -c safe.directory="$PWD" ls-files --cached --others --exclude-standard -- "$@"
    else
        find "${@:-.}" -type f -not -path './build/*' -printf '%P\n'
    fi | grep -E '\.(h|cpp)$' | sort -u | while IFS= read -r file; do
        if [[ -f $file ]]; then printf '%s\n' "$file"; fi
    done
}
