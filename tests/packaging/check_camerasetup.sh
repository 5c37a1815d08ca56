#!/bin/sh
# The privileged helper refuses every argument and every start that did not
# come through pkexec, before it touches anything. (Its working path, loading
# the module, needs a kernel and root and is not run here.)
set -u
helper="$1"
conf=/etc/modprobe.d/glint-camera.conf
had_conf=no
[ -e "$conf" ] && had_conf=yes
status=0
expect_refusal() {
    what="$1"; shift
    out=$("$@" 2>&1)
    code=$?
    [ "$code" -eq 2 ] || { echo "FAIL: $what: exit code $code (want 2): $out"; status=1; }
}
expect_refusal "an argument, through pkexec" env PKEXEC_UID=1000 "$helper" --help
expect_refusal "an empty argument, through pkexec" env PKEXEC_UID=1000 "$helper" ""
expect_refusal "a module option, through pkexec" env PKEXEC_UID=1000 "$helper" "card_label=Other"
expect_refusal "no pkexec" env -u PKEXEC_UID "$helper"
expect_refusal "an empty PKEXEC_UID" env PKEXEC_UID= "$helper"
if [ "$had_conf" = no ] && [ -e "$conf" ]; then echo "FAIL: a refused run wrote $conf"; status=1; fi
exit $status
