#!/usr/bin/env bash
# Writes the prepared records of the demo installation (DIR/data/init/) and
# its first-admin key (DIR/userkey/admin.vuk) with vantor-admin, into a
# working directory made from demo/ (scripts/new-workdir.sh calls it). They
# are made, not kept in the tree, so that they always match the formats of
# the programs built from it.
#
#   bash scripts/make-demo-data.sh DIR
#
# vantor-admin is $VANTOR_ADMIN_PATH, or build/admin/vantor-admin.
#
# The user sheet stays empty on purpose: the first start of the client makes
# the admin's row from the key (identity and password in README.md).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
if [[ $# -ne 1 ]]; then
    echo "usage: make-demo-data.sh DIR" >&2
    exit 2
fi
admin="${VANTOR_ADMIN_PATH:-$root/build/admin/vantor-admin}"
if [[ ! -x "$admin" ]]; then
    echo "make-demo-data: $admin is not built" >&2
    exit 1
fi
demo="$1"
init="$demo/data/init"

rm -f "$init"/*.vcd "$init"/*.vci
mkdir -p "$init" "$demo/userkey"

# Every prepared record carries the stamps of a Save by Ada, the first
# admin, who set the installation up: a record pushed to a new user then
# names Ada as its creator there, not the receiver (a record arriving
# without __creator is stamped by the receiving commit).
creator="Ada Lovelace/Demo/Admin"
created="2024-01-02 09:00:00 +0100"

store() {  # store SHEET JSON
    local stamped="{\"__creator\": \"$creator\", \"__created\": {\"\$date\": \"$created\"}, ${2#\{}"
    echo "$stamped" | "$admin" container store "$init/$1" > /dev/null
}

store role '{"__recordId": "demo-role-administrator", "name": "administrator", "description": "Changes users, groups, roles and every record"}'
store role '{"__recordId": "demo-role-designer", "name": "designer", "description": "Designs forms and runs the report designer"}'
store role '{"__recordId": "demo-role-staff", "name": "staff", "description": "Works on companies, contacts, projects and tasks"}'
store role '{"__recordId": "demo-role-reader", "name": "reader", "description": "Sees the shared sheets"}'

store group '{"__recordId": "demo-group-admins", "name": "Admins", "roles": "demo-role-administrator demo-role-staff"}'
store group '{"__recordId": "demo-group-designers", "name": "Designers", "roles": "demo-role-designer demo-role-staff"}'
store group '{"__recordId": "demo-group-all", "name": "All", "roles": "demo-role-reader"}'

store company '{"__recordId": "demo-company-1", "name": "Northwind Software", "city": "Prague", "industry": "software", "since": {"$date": "2019-03-01 00:00:00 +0100"}}'
store company '{"__recordId": "demo-company-2", "name": "Blue Byte Labs", "city": "Brno", "industry": "software", "since": {"$date": "2021-09-15 00:00:00 +0200"}}'
store company '{"__recordId": "demo-company-3", "name": "Kettle & Co", "city": "Vienna", "industry": "trade", "since": {"$date": "2015-06-01 00:00:00 +0200"}}'

store contact '{"__recordId": "demo-contact-1", "lastName": "Novak", "firstName": "Jana", "company": "demo-company-1", "phone": "+420 221 000 111", "email": "jana.novak@northwind.example"}'
store contact '{"__recordId": "demo-contact-2", "lastName": "Berger", "firstName": "Max", "company": "demo-company-3", "phone": "+43 1 000 222", "email": "max@kettle.example"}'
store contact '{"__recordId": "demo-contact-3", "lastName": "Svoboda", "firstName": "Petr", "company": "demo-company-2", "phone": "+420 541 000 333", "email": "petr@bluebyte.example"}'

store project '{"__recordId": "demo-project-1", "title": "Ledger migration", "customer": "demo-company-1", "phase": "running", "start": {"$date": "2024-01-08 00:00:00 +0100"}, "deadline": {"$date": "2024-06-28 00:00:00 +0200"}}'
store project '{"__recordId": "demo-project-2", "title": "Shop catalogue", "customer": "demo-company-3", "phase": "done", "start": {"$date": "2023-02-01 00:00:00 +0100"}, "deadline": {"$date": "2023-05-31 00:00:00 +0200"}}'

store task '{"__recordId": "demo-task-1", "title": "Map the old accounts", "project": "demo-project-1", "state": "started"}'
store task '{"__recordId": "demo-task-2", "title": "Agree on the cut-over day", "project": "demo-project-1", "state": "open"}'

# A designed form, released, so that every start builds it as a sheet: a
# visit report that shows each kind of form field. Staff may read, change
# and remove its records.
store form '{"__recordId": "demo-form-visit", "name": "visit", "label": "Visit reports", "source": "", "status": "released", "readers": "demo-role-staff", "updaters": "demo-role-staff", "removers": "demo-role-staff"}'
field() {  # field ORDER NAME LABEL TYPE LOCATION REQUIRED PARAMETERS TOOLTIP DEFAULT
    store formfield "{\"__recordId\": \"demo-formfield-$2\", \"form\": \"demo-form-visit\", \"order\": \"$1\", \"name\": \"$2\", \"label\": \"$3\", \"type\": \"$4\", \"location\": \"$5\", \"required\": \"$6\", \"parameters\": \"$7\", \"tooltip\": \"$8\", \"default\": \"$9\"}"
}
field 1 subject Subject string table yes "" "What the visit was about" ""
field 2 company Company reference table yes "company:name" "" ""
field 3 when "Visit date" datepicker table no "" "" ""
field 4 outcome Outcome enumeration table no "open, agreed, declined" "" open
field 5 people Attendees multireference form no "contact:firstName lastName" "" ""
field 6 notes Notes multiline form no "" "" ""

# The first-admin key: no UniqueID until the first start fills it in.
echo '{"UserID": "Ada Lovelace/Demo/Admin", "Password": "vantor-demo", "Admin": false}' \
    | "$admin" archive encode --key Rk2pWn > "$demo/userkey/admin.vuk"
echo "make-demo-data: wrote $init and $demo/userkey/admin.vuk"
