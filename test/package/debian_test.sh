#!/usr/bin/env bash
# Makes the packages, installs them in a clean Debian, and uses them there as people do: bakes, runs Python, builds a
# program. Then the archive, in the place of the packages.
#
#     test/package/debian_test.sh BUILD_DIR SOURCE_DIR
set -euo pipefail
if [[ ${1:-} != --inside ]]; then
    build=$(realpath "$1") sources=$(realpath "$2")
    for tool in mmdebstrap cpack dpkg-shlibdeps; do
        command -v "$tool" >/dev/null || { echo "skipped: there is no $tool"; exit 77; }
    done
    [[ $(id -u) == 0 ]] || { echo "skipped: only root makes the clean Debian"; exit 77; }
    work=$build/test/debian
    rm -rf "$work"
    mkdir -p "$work"
    cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/cpack.log" 2>&1 ||
        { cat "$work/cpack.log"; exit 1; }
    rm -rf "$work/packages/_CPack_Packages"
    cp -r "$sources/examples/demo.json" "$sources/examples/embed" "${BASH_SOURCE[0]}" "$work/packages"
    "$build/velto" bake "$sources/examples/demo.json" --size 64 -o "$work/packages/expected.png" --json |
        grep -o '"pixels": *"[^"]*"' >"$work/packages/expected"
    status=0
    mmdebstrap --variant=minbase --format=null --quiet --dpkgopt=force-unsafe-io \
        --customize-hook="copy-in $work/packages /root" --customize-hook="touch $work/is_made" \
        --customize-hook='chroot "$1" bash /root/packages/debian_test.sh --inside' bookworm - \
        >"$work/log" 2>&1 || status=$?
    cat "$work/log"
    [[ -e $work/is_made ]] || { echo "skipped: no clean Debian can be made"; exit 77; }
    exit "$status"
fi

cd /root/packages
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
install() { apt-get install -qq --no-install-recommends "$@" >/tmp/log 2>&1 || { tail -20 /tmp/log; exit 1; }; }

# The same pixels as where it was built; a format that another library writes.
bakes() {
    velto bake demo.json --size 64 -o /tmp/demo.png --json | grep -o '"pixels": *"[^"]*"' | cmp - expected
    velto bake demo.json --size 8 -o /tmp/demo.jpg
}

install ./velto_*.deb
velto --version
bakes
bash -c 'source /usr/share/bash-completion/completions/velto && complete -p velto' >/dev/null

if compgen -G 'velto-fuse_*.deb' >/dev/null; then
    install ./velto-fuse_*.deb
    velto bake demo.json --size 4096 -o /tmp/large.exr --json | grep -q '"fused": *true'
fi

install ./python3-velto_*.deb
python3 -c "import velto; print(velto.__version__, velto.load('demo.json').bake(8)['color'].shape)"

install ./velto-dev_*.deb g++ cmake make
cmake -S embed -B /tmp/embed >/dev/null
cmake --build /tmp/embed >/tmp/log || { cat /tmp/log; exit 1; }
/tmp/embed/embed demo.json 0.3 0.6

# The libraries that they depend on stay.
dpkg -r velto-dev python3-velto velto-fuse velto >/dev/null
mkdir /opt/velto
tar -xzf velto-*.tar.gz -C /opt/velto --strip-components=1
PATH=/opt/velto/bin:$PATH
bakes
echo "the packages and the archive work"
