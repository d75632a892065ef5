#!/usr/bin/env bash
# Runs the examples against a simulated camera on 127.0.0.1 and checks what they print.
#   runExamples.sh <onvif-camera-sim> <examples build dir>
set -euo pipefail
sim=$1
bin=$2
log=$(mktemp)
trap 'kill $pid 2>/dev/null || true; rm -f "$log"' EXIT
"$sim" --port 0 --user admin --password secret --duration 60 >"$log" 2>&1 &
pid=$!
for _ in $(seq 100); do grep -q '^ready' "$log" && break; sleep 0.1; done
url=$(awk '/^camera 0 /{print $4}' "$log")
[ -n "$url" ] || { echo "simulator did not start"; cat "$log"; exit 1; }

out=$("$bin/onvif-example-cameraInfo" "$url" admin secret 2>/dev/null)
echo "$out"
grep -q '^SimCam' <<<"$out"
grep -q '^prof_main: 1920x1080 H264  rtsp://' <<<"$out"
# A wrong password is told as such, with a failing exit code.
if err=$("$bin/onvif-example-cameraInfo" "$url" admin wrong 2>&1 >/dev/null); then exit 1; fi
grep -q 'password refused' <<<"$err"

out=$("$bin/onvif-example-ptz" "$url" admin secret 2>/dev/null)
echo "$out"
grep -q '^panning right' <<<"$out"

# Events for a few seconds from a pull point, then the subscription cancelled.
out=$("$bin/onvif-example-events" "$url" admin secret 3 2>/dev/null)
echo "$out"
grep -q '^event ' <<<"$out"
grep -q '^unsubscribed' <<<"$out"
if err=$("$bin/onvif-example-events" "$url" admin wrong 1 2>&1 >/dev/null); then exit 1; fi
grep -q 'refused the user name or password' <<<"$err"
