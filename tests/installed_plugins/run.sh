# A plug-in author outside the source tree: builds the example plug-ins, and sees the library and the installed tool
# call them.
source "$ROSTER_SOURCE_DIR/tests/installed_setup.sh"
build_client "$ROSTER_SOURCE_DIR/examples/plugins" "${warnings[@]}"
export ROSTER_RESOURCES=$work/build/resources
rosterctl=$prefix/bin/rosterctl

"$work/build/settings_screen" >"$work/story"
identifier=$("$rosterctl" --json list | sed -n 's|.*"identifier": "\(.*\)",|\1|p')
sed "s/$identifier/ID/" "$work/story" | diff - <(cat <<'STORY'
An Exchange account is set up with mail, contacts and calendars.
  ContactsPrinter: type 0 (added), account ID of type Exchange, enabled before:
  MailAndCalendarsPrinter: type 0 (added), account ID of type Exchange, enabled before:
The settings screen shows it as "Work (alexandra@example.org)".
Its credentials are renewed, with the result 0.
Contacts are switched off, and the registry is saved.
  ContactsPrinter: type 1 (modified), account ID of type Exchange, enabled before: com.nimbal.Dataclass.Calendars com.nimbal.Dataclass.Contacts com.nimbal.Dataclass.Mail
A refresh of its mail is begun, one of its contacts refused.
STORY
)

# A program that knows nothing of the plug-ins wakes the same notifiers, and finds every entry of the table in order.
"$rosterctl" disable "$identifier" Mail Calendars | sed "s/$identifier/ID/" | diff - <(
  echo "MailAndCalendarsPrinter: type 1 (modified), account ID of type Exchange," \
    "enabled before: com.nimbal.Dataclass.Calendars com.nimbal.Dataclass.Mail")
quietly "$rosterctl" creators
