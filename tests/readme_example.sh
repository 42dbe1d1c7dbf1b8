# The program in the README is the one that is built and run as an example.
set -euo pipefail
cd "$ROSTER_SOURCE_DIR"
diff <(sed -n '/^```cpp$/,/^```$/p' README.md | sed '1d;$d') examples/first_steps.cpp
