#!/usr/bin/env bash
# Makes the fuzz seeds in a scratch directory: captured replies from ../shared/fixtures
# (read in place) and the replies of a simulated camera.
#   fuzz/makeSeeds.sh <onvif-camera-sim binary> <output dir>
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
sim=$1
out=$2
fixtures=$here/../shared/fixtures
rm -rf "$out"
mkdir -p "$out/xml" "$out/discovery" "$out/text" "$out/http"

# Whole HTTP answers for the reply parser: the framings a camera may use.
ok='<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body/></s:Envelope>'
printf 'HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\nContent-Length: %d\r\n\r\n%s' "${#ok}" "$ok" >"$out/http/length"
printf 'HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n%x\r\n%s\r\n0\r\nX: 1\r\n\r\n' "${#ok}" "$ok" >"$out/http/chunked"
printf 'HTTP/1.0 200 OK\r\n\r\n%s' "$ok" >"$out/http/until-close"
printf 'HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 500 Internal\r\nContent-Length: 2\r\nX:\r\n folded\r\n\r\nno' >"$out/http/interim"
{ printf 'HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\n\r\n'; printf '%s' "$ok" | gzip -c; } >"$out/http/gzip"
{ printf 'HTTP/1.1 200 OK\r\nContent-Encoding: deflate\r\nTransfer-Encoding: chunked\r\n\r\n'
  z=$(mktemp); printf '%s' "$ok" | python3 -c 'import sys,zlib; sys.stdout.buffer.write(zlib.compress(sys.stdin.buffer.read()))' >"$z"
  printf '%x\r\n' "$(stat -c %s "$z")"; cat "$z"; printf '\r\n0\r\n\r\n'; rm -f "$z"; } >"$out/http/deflate-chunked"

# Two leading bytes pick the class in the XML targets; spread them over the seeds.
n=0
add_xml() {
    printf "\\x$(printf %02x $((n / 256 % 256)))\\x$(printf %02x $((n % 256)))" >"$out/xml/$n"
    cat "$1" >>"$out/xml/$n"
    n=$((n + 37))
}

if [ -d "$fixtures" ]; then
    while IFS= read -r -d '' f; do
        add_xml "$f"
        case $f in *[Pp]robe*) cp "$f" "$out/discovery/$(basename "$(dirname "$f")")-$(basename "$f")" ;; esac
    done < <(find "$fixtures" -name '*.xml' -print0)
fi

log=$(mktemp)
"$sim" --no-auth --duration 30 >"$log" 2>&1 &
pid=$!
for _ in $(seq 100); do grep -q '^ready' "$log" && break; sleep 0.1; done
base=$(awk '/^camera 0 /{print $4}' "$log" | sed 's#/onvif/device_service##')
if [ -n "$base" ]; then
    ops="device:tds:GetDeviceInformation device:tds:GetCapabilities device:tds:GetServices
         device:tds:GetSystemDateAndTime device:tds:GetScopes device:tds:GetNetworkInterfaces
         media:trt:GetProfiles media:trt:GetVideoSources media:trt:GetSnapshotUri media:trt:GetStreamUri
         ptz:tptz:GetNodes ptz:tptz:GetConfigurations ptz:tptz:GetPresets ptz:tptz:GetStatus
         event:tev:CreatePullPointSubscription event:tev:GetServiceCapabilities device:tds:NoSuchOperation"
    declare -A ns=([tds]=http://www.onvif.org/ver10/device/wsdl [trt]=http://www.onvif.org/ver10/media/wsdl
        [tptz]=http://www.onvif.org/ver20/ptz/wsdl [tev]=http://www.onvif.org/ver10/events/wsdl)
    for op in $ops; do
        IFS=: read -r service prefix name <<<"$op"
        body="<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\"><s:Body>"
        body+="<$prefix:$name xmlns:$prefix=\"${ns[$prefix]}\"><$prefix:ProfileToken>Profile_1</$prefix:ProfileToken>"
        body+="</$prefix:$name></s:Body></s:Envelope>"
        curl -s -m 5 -H 'Content-Type: application/soap+xml' --data-binary "$body" \
            "$base/onvif/${service}_service" -o "$log.reply" || true
        [ -s "$log.reply" ] && add_xml "$log.reply"
    done
fi
kill "$pid" 2>/dev/null || true
wait "$pid" 2>/dev/null || true
rm -f "$log" "$log.reply"

for t in "12|-7|true|FALSE|1e5|a|b" "3.40282e+38|nan|inf|-0|Receiver" " 5|0x10|+3|a|a" "||"; do
    printf '\x00\x01%s' "$t" >"$out/text/$(echo "$t" | md5sum | cut -c1-8)"
done
echo "seeds: $(ls "$out/xml" | wc -l) xml, $(ls "$out/discovery" | wc -l) discovery, $(ls "$out/text" | wc -l) text"
