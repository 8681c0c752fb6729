#!/usr/bin/env bash
# Shows replication at work without a window: a relay and two installations
# on this machine, with vantor-admin as the headless client of each.
#
#   bash scripts/replication-demo.sh DIR [PORT]
#
# DIR is replaced. DIR/a is the demo installation of the first admin (Ada);
# Ada makes a second user, Bob, as a record of the user sheet and a key for
# him, and sends him every record (the "Send all records" action). DIR/b is
# Bob's installation: the configuration, his key, and nothing else until
# the first sync. Then records travel both ways through the relay
# (vantor-relay on 127.0.0.1:PORT, default 8888, working in DIR/relay).
#
# The programs are $VANTOR_ADMIN_PATH and $VANTOR_RELAY_PATH, or the ones in
# build/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [[ $# -lt 1 || $# -gt 2 ]]; then
    echo "usage: replication-demo.sh DIR [PORT]" >&2
    exit 2
fi
dir="$1"
port="${2:-8888}"
export VANTOR_ADMIN_PATH="${VANTOR_ADMIN_PATH:-$root/build/admin/vantor-admin}"
relay_program="${VANTOR_RELAY_PATH:-$root/build/relay/vantor-relay}"
admin="$VANTOR_ADMIN_PATH"
export VANTOR_NONINTERACTIVE=1

rm -rf "$dir"
mkdir -p "$dir/relay" "$dir/b/userkey" "$dir/b/data"
bash "$root/scripts/new-workdir.sh" "$dir/a" > /dev/null
cp -r "$root/demo/conf" "$dir/b/"
echo 127.0.0.1 > "$dir/a/transceiver.txt"
echo 127.0.0.1 > "$dir/b/transceiver.txt"

"$relay_program" --port "$port" --dir "$dir/relay" > "$dir/relay.log" 2>&1 &
relay_pid=$!
trap 'kill $relay_pid 2> /dev/null || true' EXIT
for _ in $(seq 50); do
    grep -q "listening on port" "$dir/relay.log" && break
    sleep 0.1
done
if ! grep -q "listening on port" "$dir/relay.log"; then
    echo "replication-demo: the relay did not start:" >&2
    cat "$dir/relay.log" >&2
    exit 1
fi
echo "== relay on port $port (log: $dir/relay.log)"

as_ada() { (cd "$dir/a" && VANTOR_PASSWORD=vantor-demo "$admin" "$@" 2> /dev/null); }
as_bob() { (cd "$dir/b" && VANTOR_PASSWORD=bob-demo "$admin" "$@" 2> /dev/null); }

echo "== Ada makes the user Bob, his key, and sends him every record"
bob=$(echo '{"firstName": "Bob", "lastName": "Baker", "orgUnit": "Sales", "company": "Demo",
             "role": "manager", "groups": "demo-group-admins"}' | as_ada record set user)
key=$(cd "$dir/a" && echo bob-demo | "$admin" key make "$bob" --password-stdin 2> /dev/null)
mv "$dir/a/$key" "$dir/b/userkey/"
as_ada record action user "$bob" VTActionPushSpaces
echo "   deltas waiting at Ada: $(as_ada deltas | wc -l)"

echo "== Ada syncs, then Bob"
as_ada sync --port "$port"
as_bob sync --port "$port"
echo "   companies at Bob:"
as_bob record list company | sed 's/^/   /'

echo "== Bob adds a company and changes a city; Ada syncs"
echo '{"name": "Relay Works", "city": "Ostrava", "industry": "software"}' | as_bob record set company > /dev/null
echo '{"__recordId": "demo-company-3", "city": "Graz"}' | as_bob record set company > /dev/null
as_bob sync --port "$port"
as_ada sync --port "$port"
echo "   companies at Ada:"
as_ada record list company | sed 's/^/   /'

echo "== Ada writes Bob a message: sent, delivered, read"
message=$(echo "{\"subject\": \"Lunch at noon?\", \"whom\": \"$bob\"}" | as_ada record set message)
# The message's status as each sees it: Ada in her Sent messages, Bob in
# his Inbox (each list shows only that user's messages).
status() {
    local sheet=$1
    shift
    "$@" record list "$sheet" | grep "$message" | sed 's/.*"status":"\([a-z]*\)".*/\1/'
}
echo "   at Ada after Save: $(status outbox as_ada)"
as_ada sync --port "$port" > /dev/null
as_bob sync --port "$port" > /dev/null
echo "   at Bob after his sync: $(status message as_bob)"
as_ada sync --port "$port" > /dev/null
echo "   at Ada after hers: $(status outbox as_ada)"
as_bob record select message "$message"
as_bob sync --port "$port" > /dev/null
as_ada sync --port "$port" > /dev/null
echo "   at Ada after Bob read it: $(status outbox as_ada)"
echo "== the relay's log, last lines"
tail -n 4 "$dir/relay.log" | sed 's/^/   /'
