#!/usr/bin/env bash
# run.sh BUILD SOURCE: installs the build into a folder of its own, builds the example host against it through the CMake
# package (shared and static) and through pkg-config, and streams a second of a tone through each.
set -eu
build=$1 source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/usr" >/dev/null
cmake -G Ninja -S "$source/tests/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DHOST_SOURCE="$source/examples/stream_host.c" >/dev/null
cmake --build "$work/build" >/dev/null
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work/usr" -name vqns.pc)")
sed "s|^prefix=.*|prefix=$work/usr|" -i "$PKG_CONFIG_PATH/vqns.pc"
read -ra flags <<<"$(pkg-config --cflags --libs vqns)"
cc "$source/examples/stream_host.c" "${flags[@]}" -o "$work/build/host-pkg-config"

export LD_LIBRARY_PATH
LD_LIBRARY_PATH=$(pkg-config --variable=libdir vqns)
head -c 32000 /dev/urandom >"$work/in.raw"
for host in vqns vqns-static pkg-config; do
    "$work/build/host-$host" <"$work/in.raw" >"$work/$host.raw"
    [ "$(stat -c %s "$work/$host.raw")" -eq 32000 ] || { echo "host-$host: wrong length"; exit 1; }
    # The first 50 ms are silence, what follows is not.
    head -c 1600 "$work/$host.raw" | cmp -s - <(head -c 1600 /dev/zero) || { echo "host-$host: no silence first"; exit 1; }
    ! tail -c 16000 "$work/$host.raw" | cmp -s - <(head -c 16000 /dev/zero) || { echo "host-$host: silent"; exit 1; }
    cmp "$work/vqns.raw" "$work/$host.raw"
done
