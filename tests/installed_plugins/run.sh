# A plug-in author outside the source tree: builds the example plug-ins against an installation that was moved after
# it was made, and sees the library and the installed tool call them.
set -euo pipefail

device=$(mktemp -d)
trap 'rm -rf "$device"' EXIT
cmake --install "$ROSTER_BUILD_DIR" --prefix "$device/elsewhere" >/dev/null
mv "$device/elsewhere" "$device/usr"
build=$device/build

cmake -S "$ROSTER_SOURCE_DIR/examples/plugins" -B "$build" -G Ninja \
  -DCMAKE_PREFIX_PATH="$device/usr" -DCMAKE_CXX_COMPILER="$CXX" \
  -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror" >/dev/null
cmake --build "$build" >"$build/log" || { cat "$build/log"; exit 1; }

export ROSTER_ROOT=$device ROSTER_RESOURCES=$build/resources
rosterctl=$device/usr/bin/rosterctl

"$build/settings_screen" >"$build/story"
identifier=$("$rosterctl" --json list | sed -n 's|.*"identifier": "\(.*\)",|\1|p')
sed "s/$identifier/ID/" "$build/story" | diff - <(cat <<'STORY'
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

# A program that knows nothing of the plug-ins wakes the same notifiers.
"$rosterctl" disable "$identifier" Mail Calendars | sed "s/$identifier/ID/" | diff - <(
  echo "MailAndCalendarsPrinter: type 1 (modified), account ID of type Exchange," \
    "enabled before: com.nimbal.Dataclass.Calendars com.nimbal.Dataclass.Mail")
