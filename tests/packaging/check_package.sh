#!/bin/bash
# Builds the Debian package from the build tree, unpacks it into a throwaway
# root and checks it as a user's system would meet it: libraries resolve,
# the desktop file and metainfo validate, lintian finds no errors, every
# command has a man page, the policy names the installed helper, and the
# installed application starts from that root.
set -u
build="$1"
work=$(mktemp -d "${TMPDIR:-/tmp}/glint-package-XXXXXX")
app_pid=
cleanup() {
    [ -n "$app_pid" ] && kill "$app_pid" 2>/dev/null && wait "$app_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

if ! cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1; then
    cat "$work/cpack.log"; fail "cpack"; exit 1
fi
deb=$(ls "$work"/out/glint-camera_*.deb 2>/dev/null | head -n1)
[ -f "$deb" ] || { cat "$work/cpack.log"; fail "no package made"; exit 1; }
echo "package: $(basename "$deb") ($(du -k "$deb" | cut -f1) kB)"

depends=$(dpkg-deb -f "$deb" Depends)
echo "$depends" | grep -q 'libdlib-data' || fail "Depends lacks libdlib-data: $depends"
echo "$depends" | grep -q 'libqt5core5a' || fail "Depends lacks the generated library packages: $depends"
dpkg-deb -f "$deb" Recommends | grep -q 'v4l2loopback-dkms' || fail "Recommends lacks v4l2loopback-dkms"
dpkg-deb --ctrl-tarfile "$deb" | tar -t | grep -q 'postrm' || fail "no postrm"

root="$work/root"
dpkg -x "$deb" "$root"
dpkg-deb -e "$deb" "$work/control"

# The package's postrm, in a mount namespace of its own with an empty /etc:
# a removal keeps the module options, a purge removes them.
postrm_check='mount -t tmpfs none /etc && mkdir /etc/modprobe.d &&
    echo "options v4l2loopback" > /etc/modprobe.d/glint-camera.conf &&
    sh "$1" remove && test -f /etc/modprobe.d/glint-camera.conf &&
    sh "$1" purge && ! test -e /etc/modprobe.d/glint-camera.conf && echo postrm-ok'
if unshare -m --propagation private true 2>/dev/null; then
    result=$(unshare -m --propagation private sh -c "$postrm_check" sh "$work/control/postrm" 2>&1)
    [ "$result" = postrm-ok ] || fail "postrm: $result"
else
    echo "no mount namespaces here: the postrm is not run"
fi

for program in glint-camera glint-camera-sink glint-lens-server glint-lens-pack glint-event; do
    [ -x "$root/usr/bin/$program" ] || { fail "missing /usr/bin/$program"; continue; }
    missing=$(ldd "$root/usr/bin/$program" | grep 'not found')
    [ -z "$missing" ] || fail "$program: $missing"
    [ -f "$root/usr/share/man/man1/$program.1.gz" ] || fail "no man page for $program"
done
helper="$root/usr/libexec/glint-camera/glint-camera-setup"
[ -x "$helper" ] && ! ldd "$helper" | grep -q 'not found' || fail "the set-up helper is missing or its libraries do not resolve"

for item in glint-demo.mp4 PrecachedAssets.bundle WebResources.bundle lenses bundled-lenses/index.json bundled-lenses/sunglasses.zip \
    backgrounds/soft-gradient.jpg; do
    [ -e "$root/usr/share/glint-camera/$item" ] || fail "missing /usr/share/glint-camera/$item"
done
for size in 16 22 24 32 48 64 128 256; do
    icon="$root/usr/share/icons/hicolor/${size}x${size}/apps/glint-camera.png"
    file "$icon" | grep -q "$size x $size" || fail "no ${size}px icon: $(file -b "$icon")"
done

desktop-file-validate "$root/usr/share/applications/org.glintcamera.GlintCamera.desktop" || fail "desktop-file-validate"
appstreamcli validate --no-net "$root/usr/share/metainfo/org.glintcamera.GlintCamera.metainfo.xml" || fail "appstreamcli validate"

policy="$root/usr/share/polkit-1/actions/org.glintcamera.GlintCamera.setup.policy"
grep -q '>/usr/libexec/glint-camera/glint-camera-setup<' "$policy" || fail "the policy does not name the installed helper"

lintian --tag-display-limit 0 "$deb" >"$work/lintian.log" 2>&1
! grep '^E:' "$work/lintian.log" || fail "lintian reports errors"

# The installed program starts from the root and logs its start; it finds
# its data through ../share/glint-camera, not through the build tree.
if [ -n "${DISPLAY:-}" ]; then
    home="$work/home"
    mkdir -p "$home/config" "$home/data" "$home/runtime"
    chmod 700 "$home/runtime"
    env -u GLINT_DEMO_CLIP -u GLINT_ASSET_BUNDLE -u GLINT_WEB_RESOURCES \
        XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data" XDG_RUNTIME_DIR="$home/runtime" \
        GLINT_BACKEND_URL="http://127.0.0.1:9/vc/v1" QT_QPA_PLATFORM=xcb \
        "$root/usr/bin/glint-camera" >"$work/app.log" 2>&1 &
    app_pid=$!
    log="$home/config/Glint/Glint Camera/Log.txt"
    started=no
    for _ in $(seq 1 150); do
        if [ -f "$log" ] && grep -q 'glint.actions: Started' "$log"; then
            started=yes; break
        fi
        kill -0 "$app_pid" 2>/dev/null || break
        sleep 0.2
    done
    if [ "$started" = yes ]; then
        sleep 2
        grep -q 'Demo clip not found' "$log" && fail "the installed program did not find its demo clip"
        grep -q 'bundled lenses in .*/usr/share/glint-camera/bundled-lenses' "$log" ||
            fail "the installed program did not find its bundled lenses"
    else
        cat "$work/app.log"; [ -f "$log" ] && cat "$log"; fail "the installed application did not log its start"
    fi
else
    echo "no X display: the start of the installed application is not checked"
fi

[ "$failures" -eq 0 ] && echo "package checks passed"
exit $((failures > 0))
