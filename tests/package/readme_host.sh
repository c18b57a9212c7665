#!/bin/sh
# The host that README shows is the example that is built and run, to the letter.
# Usage: readme_host.sh SOURCE
set -eu
sed -n '/^```c$/,/^```$/p' "$1/README.md" | sed '1d;$d' | diff "$1/examples/hello/hello.c" -
