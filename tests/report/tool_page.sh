#!/usr/bin/env bash
# Shows the report of a device that really died in a browser: tool_page.sh DEVICE_HOST NIMA_POST TEXT WORK_FOLDER
set -euo pipefail

host=$(realpath "$1")
post=$(realpath "$2")
text=$(realpath "$3")
tests=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
rm -rf "$4"
mkdir -p "$4/device"
cd "$4/device"
"$host" --input "$text" --die fatal >/dev/null
"$post" report . -o ../report.html
cd ..
/usr/bin/python3 "$tests/report_page_test.py" report.html
