# The author of a migrator outside the source tree: builds the example against an installation, puts its bundle on a
# device that an older system left behind, and has the installed tool migrate it.
set -euo pipefail

device=$(mktemp -d)
prefix=$device.prefix
build=$device.build
trap 'rm -rf "$device" "$prefix" "$build"' EXIT
cmake --install "$ROSTER_BUILD_DIR" --prefix "$prefix" >/dev/null
cmake -S "$ROSTER_SOURCE_DIR/examples/migrator" -B "$build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$CXX" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror" >/dev/null
cmake --build "$build" >"$build/log" || { cat "$build/log"; exit 1; }
cmake --install "$build" --prefix "$device" >/dev/null

export ROSTER_ROOT=$device HOME=$device/home
unset ROSTER_RESOURCES
rosterctl=$prefix/bin/rosterctl
list=$HOME/Library/Mail/Accounts.plist
preferences=$HOME/Library/Preferences/com.nimbal.Tessera.plist

fail() { echo "$*"; exit 1; }
# Runs a command that must end with the status; what it says goes to $said.
said=$build/said
expect() {
  local status=0
  "${@:2}" >"$said" 2>&1 || status=$?
  [ "$status" = "$1" ] || { cat "$said"; fail "${*:2}: exit status $status, not $1"; }
}
says() { grep -q -- "$1" "$said" || { cat "$said"; fail "nothing is said of: $1"; }; }
accounts() { "$rosterctl" list | awk 'NR > 1 { $1 = ""; print }' | sort; }
files() { find "$device" -printf '%P %y %m %T@\n' -type f -exec sha256sum {} + | sort; }
registry() { find "$device" -name com.nimbal.roster.plist; }

expect 0 "$rosterctl" check
expect 0 "$rosterctl" migrate
says "nothing to migrate"

mkdir -p "$(dirname "$list")" "$(dirname "$preferences")"
# A property list of entries, each an array's element given as keys and texts.
entry() { echo "<dict>"; printf '<key>%s</key><string>%s</string>\n' "$@"; echo "</dict>"; }
mailbox=(Hostname imap.example.org Username alexandra)
{
  echo '<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict><key>MailAccounts</key><array>'
  entry Type IMAP AccountName Work "${mailbox[@]}" PortNumber 993
  entry Type Pigeon AccountName Loft Hostname loft.example.org Username alexandra
  entry Type POP Username alexandra
  echo "<string>Hello</string>"
  entry Type IMAP AccountName "Once more" "${mailbox[@]}"
  entry Type POP Hostname pop.example.org Username sasha
  echo '</array></dict></plist>'
} >"$list"
echo "bplist of another time" >"$preferences"
cp "$list" "$build/list"
cp "$preferences" "$build/preferences"
# A registry that is there beside an old list is made anew from the list.
"$rosterctl" add CalDAV CalDAVAccount DisplayName=Club --force >/dev/null

# Asking whether, and what would be done, changes nothing.
files >"$build/before"
expect 1 "$rosterctl" check
says "a migration is due"
expect 0 "$rosterctl" migrate --dry-run
says "$list"
says "AccountMigrator.migrator"
files | diff "$build/before" -

migrated=$' Mail IMAPAccount Work Mail\n Mail POPAccount sasha Mail'
expect 0 "$rosterctl" --verbose migrate
says "have been migrated"
says 'account 1 of the mail list is left out: its type "Pigeon" is not known'
for index in 2 3 4; do says "account $index of the mail list is left out"; done
[ "$(accounts)" = "$migrated" ] || { accounts; fail "the registry holds other accounts"; }
identifier=$("$rosterctl" list | awk '/Work/ { print $1 }')
"$rosterctl" --json show "$identifier" >"$said"
says '"PortNumber": "993"'
cmp "$build/list" "$list.migrated"
cmp "$build/preferences" "$preferences.migrated"
expect 0 "$rosterctl" check

# There is nothing left to do.
files >"$build/before"
expect 0 "$rosterctl" migrate
says "nothing to migrate"
files | diff "$build/before" -

# After a run that was killed between its save and its end the list is met once more. The result is the same, and a list
# that was set aside before is not overwritten.
echo "the first list" >"$list.migrated"
cp "$build/list" "$list"
expect 0 "$rosterctl" migrate
[ "$(accounts)" = "$migrated" ] || { accounts; fail "a second run gives other accounts"; }
cmp "$build/list" "$list.migrated-2"
[ "$(cat "$list.migrated")" = "the first list" ]

# A list that is none is set aside too: as long as it is there, the registry is removed at every run.
echo "<plist" >"$list"
expect 0 "$rosterctl" migrate
[ ! -e "$list" ]
[ "$(cat "$list.migrated-3")" = "<plist" ]

# A registry of an older version becomes one of this version, and its former self is kept.
{
  echo '<plist version="1.0"><dict><key>Version</key><integer>11</integer><key>Accounts</key><array>'
  entry Identifier C1 DisplayName Club Type CalDAV Class CalDAVAccount
  entry Identifier P1 Type Pigeon
  echo '</array></dict></plist>'
} >"$(registry)"
cp "$(registry)" "$build/registry"
inode=$(stat -c %i "$(registry)")
expect 1 "$rosterctl" check
says "a migration is due"
expect 0 "$rosterctl" migrate
[ "$(accounts)" = " CalDAV CalDAVAccount Club -" ] || { accounts; fail "the old registry's account is lost"; }
cmp "$build/registry" "$(registry).migrated"
[ "$(stat -c %i "$(registry).migrated")" = "$inode" ]  # a copy might not be on the disk yet
expect 0 "$rosterctl" check

# As long as the registry cannot be written, the list stays where it is.
registry=$(registry)
rm "$registry"
mkdir "$registry"
cp "$build/list" "$list"
expect 1 "$rosterctl" migrate
cmp "$build/list" "$list"
rmdir "$registry"
expect 0 "$rosterctl" migrate
[ "$(accounts)" = "$migrated" ]
