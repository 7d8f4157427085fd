#!/usr/bin/env bash
# curl against the host. It uses what people use at a shell: kept connections, Expect, chunks, HTTP/1.0,
# HEAD, entity tags, ranges, redirects, TLS. Environment: HOST_HTTP, HOST_HTTPS, PEER_CA.
set -u
failed=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rpc=$HOST_HTTP/rpc
json=(-H 'Content-Type: application/json')
sum='{"jsonrpc":"2.0","method":"sum","params":[1,2,3],"id":1}'
six='{"jsonrpc":"2.0","id":1,"result":6}'

equal() { # name, got, expected
  if [ "$2" = "$3" ]; then
    echo "ok      curl: $1"
  else
    printf 'FAILED  curl: %s\n  got      %s\n  expected %s\n' "$1" "${2:0:400}" "${3:0:400}"
    failed=1
  fi
}
# The status, then the body; what a shell shows of an answer.
ask() { curl -sS --max-time 20 -w ' %{http_code}' "$@" 2>&1 | tr -d '\n'; }
array() { # elements of 4 bytes
  printf '{"jsonrpc":"2.0","method":"count","params":[0'
  head -c $((($1 - 1) * 4)) /dev/zero | sed 's/\x00\x00\x00\x00/,123/g'
  printf '],"id":1}'
}
array 750000 >"$work/large"      # 3 MB: curl asks first whether it may send it
array 1500000 >"$work/too_large" # more than the host takes

equal "connections are kept" \
  "$(curl -sS "${json[@]}" -d "$sum" -w '%{num_connects} ' -o /dev/null "$rpc" -o /dev/null "$rpc" -o /dev/null "$rpc")" "1 0 0 "
equal "a connection is kept over HEAD, 404 and 405" \
  "$(curl -sS -w '%{http_code} %{num_connects}, ' -o /dev/null -I "$HOST_HTTP/" --next -sS -w '%{http_code} %{num_connects}, ' \
    -o /dev/null "$HOST_HTTP/none" --next -sS -w '%{http_code} %{num_connects}, ' -o /dev/null "$rpc" \
    --next -sS -w '%{http_code} %{num_connects}' -o /dev/null "${json[@]}" -d "$sum" "$rpc")" \
  "200 1, 404 0, 405 0, 200 0"
curl -sSv "${json[@]}" -H 'Expect: 100-continue' --data-binary "@$work/large" "$rpc" >"$work/out" 2>"$work/log"
equal "a large body is sent when it is asked for" \
  "$(cat "$work/out") $(grep -c '^< HTTP/1.1 100 Continue' "$work/log")" \
  '{"jsonrpc":"2.0","id":1,"result":750000} 1'
equal "a body that is too large is not sent" \
  "$(curl -sS "${json[@]}" -H 'Expect: 100-continue' --data-binary "@$work/too_large" -o /dev/null \
    -w '%{http_code} %{size_upload}' "$rpc")" "413 0"
equal "chunks" "$(ask "${json[@]}" -H 'Transfer-Encoding: chunked' --data-binary "@$work/large" "$rpc")" \
  '{"jsonrpc":"2.0","id":1,"result":750000} 200'
equal "chunks that are too many" \
  "$(curl -sS "${json[@]}" -H 'Transfer-Encoding: chunked' -H 'Expect:' --data-binary "@$work/too_large" -w '%{http_code}' \
    -o /dev/null "$rpc" 2>/dev/null)" 413
equal "HTTP/1.0" "$(ask -0 "${json[@]}" -d "$sum" "$rpc")" "$six 200"
equal "a large answer comes in chunks" \
  "$(curl -sS "${json[@]}" -d '{"jsonrpc":"2.0","method":"blob","params":{"bytes":3000000},"id":1}' -D "$work/head" "$rpc" |
    grep -c '"result":\[.*\]}') $(grep -ci '^transfer-encoding: chunked' "$work/head")" "1 1"

curl -sS --etag-save "$work/tag" -o "$work/page" "$HOST_HTTP/"
equal "the console by its tag" \
  "$(curl -sS --etag-compare "$work/tag" -o "$work/again" -w '%{http_code} %{size_download}' "$HOST_HTTP/")" "304 0"
equal "HEAD tells the length" \
  "$(curl -sSI "$HOST_HTTP/" | tr -d '\r' | sed -n 's/^Content-Length: //p')" "$(wc -c <"$work/page")"
curl -sS -o "$work/file" "$HOST_HTTP/files/large.json" && cp "$work/file" "$work/whole"
truncate -s 1000 "$work/file"
curl -sS -C - -o "$work/file" "$HOST_HTTP/files/large.json"
equal "a download is resumed" "$(cksum <"$work/file")" "$(cksum <"$work/whole")"
equal "a part" "$(ask -r 2-4 "$HOST_HTTP/files/large.json")" "yyy 206"
equal "what moved is found" "$(ask -L "$HOST_HTTP/old/small.json" | tail -c 4)" " 200"

equal "TLS" "$(ask --cacert "$PEER_CA" "${json[@]}" -d "$sum" "$HOST_HTTPS/rpc")" "$six 200"
equal "TLS 1.2" "$(ask --tls-max 1.2 --cacert "$PEER_CA" "${json[@]}" -d "$sum" "$HOST_HTTPS/rpc")" "$six 200"
equal "TLS, a large body both ways" \
  "$(curl -sS --cacert "$PEER_CA" "${json[@]}" --data-binary "@$work/large" "$HOST_HTTPS/rpc")" \
  '{"jsonrpc":"2.0","id":1,"result":750000}'
equal "who wants HTTP/2 gets 1.1" \
  "$(ask --http2 "${json[@]}" -d "$sum" "$rpc") $(ask --http2 --cacert "$PEER_CA" "${json[@]}" -d "$sum" "$HOST_HTTPS/rpc")" \
  "$six 200 $six 200"
exit $failed
