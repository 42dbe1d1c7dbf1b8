# The author of a migrator outside the source tree: builds the example, puts its bundle on a device that an older system
# left behind, and has the installed tool migrate it.
source "$ROSTER_SOURCE_DIR/tests/installed_setup.sh"
build_client "$ROSTER_SOURCE_DIR/examples/migrator" "${warnings[@]}"
quietly cmake --install "$work/build" --prefix "$ROSTER_ROOT"
export HOME=$ROSTER_ROOT/home
rosterctl=$prefix/bin/rosterctl
registry=$ROSTER_ROOT/var/lib/roster/Preferences/com.nimbal.roster.plist
list=$HOME/Library/Mail/Accounts.plist
preferences=$HOME/Library/Preferences/com.nimbal.Tessera.plist

# Runs the tool, which must end with the status and say these texts.
expect() {
  local said text status=0
  said=$("$rosterctl" $2 2>&1) || status=$?
  [ "$status" = "$1" ] || fail "rosterctl $2: exit status $status, not $1: $said"
  for text in "${@:3}"; do
    [[ $said == *"$text"* ]] || fail "rosterctl $2: nothing is said of: $text: $said"
  done
}
expect_accounts() {
  "$rosterctl" list | awk 'NR > 1 { $1 = ""; print substr($0, 2) }' | sort | diff <(printf '%s\n' "$@") -
}
expect_no_change() {
  files() { find "$ROSTER_ROOT" -printf '%P %y %m %T@\n' -type f -exec sha256sum {} + | sort; }
  files >"$work/before"
  expect "$@"
  files | diff "$work/before" -
}
# Property lists of entries, each an array's element given as keys and texts.
entry() { echo "<dict>"; printf '<key>%s</key><string>%s</string>\n' "$@"; echo "</dict>"; }
begin() { echo "<plist version=\"1.0\"><dict>$1<array>"; }
end() { echo '</array></dict></plist>'; }

mkdir -p "$(dirname "$list")" "$(dirname "$preferences")"
mailbox=(Hostname imap.example.org Username alexandra)
{
  begin '<key>MailAccounts</key>'
  entry Type IMAP AccountName Work "${mailbox[@]}" PortNumber 993
  entry Type Pigeon AccountName Loft Hostname loft.example.org Username alexandra
  entry Type POP Username alexandra
  echo "<string>Hello</string>"
  entry Type IMAP AccountName "Once more" "${mailbox[@]}"
  entry Type POP Hostname pop.example.org Username sasha
  end
} | tee "$work/list" >"$list"
echo "bplist of another time" | tee "$work/preferences" >"$preferences"
# A registry that is there beside an old list is made anew from the list.
quietly "$rosterctl" add CalDAV CalDAVAccount DisplayName=Club --force

expect_no_change 1 check "a migration is due"
expect_no_change 0 "migrate --dry-run" "$list" "AccountMigrator.migrator"
left_out() { printf "account $1 of the mail list is left out"; }
expect 0 "--verbose migrate" "have been migrated" "$(left_out 1): its type \"Pigeon\" is not known" \
  "$(left_out 2)" "$(left_out 3)" "$(left_out 4)"
migrated=("Mail IMAPAccount Work Mail" "Mail POPAccount sasha Mail")
expect_accounts "${migrated[@]}"
expect 0 "--json show $("$rosterctl" list | awk '/Work/ { print $1 }')" '"PortNumber": "993"'
cmp "$work/list" "$list.migrated"
cmp "$work/preferences" "$preferences.migrated"
expect 0 check
expect_no_change 0 migrate "nothing to migrate"

# After a run that was killed between its save and its end the list is met once more. The result is the same, and a list
# that was set aside before is not overwritten. One that is none is set aside too: as long as it is there, the registry
# is removed at every run.
echo "the first list" >"$list.migrated"
cp "$work/list" "$list"
expect 0 migrate
expect_accounts "${migrated[@]}"
echo "<plist" >"$list"
expect 0 migrate
[ ! -e "$list" ]
cat "$list.migrated" "$list.migrated-2" "$list.migrated-3" | diff - <(echo "the first list"; cat "$work/list"; echo "<plist")

# A registry of an older version becomes one of this version, and its former self is kept.
{
  begin '<key>Version</key><integer>11</integer><key>Accounts</key>'
  entry Identifier C1 DisplayName Club Type CalDAV Class CalDAVAccount
  entry Identifier P1 Type Pigeon
  end
} | tee "$work/registry" >"$registry"
inode=$(stat -c %i "$registry")
expect 1 check "a migration is due"
expect 0 migrate
expect_accounts "CalDAV CalDAVAccount Club -"
cmp "$work/registry" "$registry.migrated"
[ "$(stat -c %i "$registry.migrated")" = "$inode" ]  # a copy might not be on the disk yet
expect 0 check

# As long as the registry cannot be written, the list stays where it is.
rm "$registry"
mkdir "$registry"
cp "$work/list" "$list"
expect 1 migrate
cmp "$work/list" "$list"
rmdir "$registry"
expect 0 migrate
expect_accounts "${migrated[@]}"
