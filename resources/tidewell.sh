#!/bin/sh
# Command-line launcher of Tidewell. Link it into a folder on your PATH:
#   sudo ln -sf /path/to/Tidewell.app/Contents/Resources/tidewell.sh /usr/local/bin/tidewell
# It marks the start as a command-line start, so the tool runs even where standard input is
# not a terminal (SSH commands, CI jobs), and starts the executable of the bundle it lives in.
set -e

# Follow the chain of links (/usr/local/bin/tidewell -> .../tidewell.sh) to the script itself.
# A readlink loop rather than `readlink -f`, which older macOS releases do not have.
script=$0
hops=0
while [ -L "$script" ]; do
  hops=$((hops + 1))
  if [ "$hops" -gt 64 ]; then
    echo "tidewell: too many symbolic links starting at $0" >&2
    exit 1
  fi
  target=$(readlink "$script")
  case $target in
    /*) script=$target ;;
    *) script=$(dirname "$script")/$target ;;
  esac
done

resources=$(cd -P "$(dirname "$script")" && pwd)
contents=$(dirname "$resources")
executable=$contents/MacOS/tidewell
if [ ! -x "$executable" ]; then
  echo "tidewell: cannot find the Tidewell executable in $contents/MacOS" >&2
  exit 1
fi

TIDEWELL_FROM_COMMAND_LINE=1
export TIDEWELL_FROM_COMMAND_LINE
exec "$executable" "$@"
