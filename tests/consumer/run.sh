#!/usr/bin/env bash
# run.sh SOURCE [BUILD]: builds the example host against the installed package, through CMake (shared and static) and
# through pkg-config, and streams a second of a tone through each. With BUILD, that build is installed into a folder of
# its own first; without, what the system has is used.
set -eu
source=$1 build=${2-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=/usr
search=()
if [ -n "$build" ]; then
    prefix=$work/usr
    cmake --install "$build" --prefix "$prefix" >/dev/null
    search=(-DCMAKE_PREFIX_PATH="$prefix")
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name vqns.pc)")
    export PKG_CONFIG_PATH
    LD_LIBRARY_PATH=$(pkg-config --variable=libdir vqns)
    export LD_LIBRARY_PATH
fi
cmake -G Ninja -S "$source/tests/consumer" -B "$work/build" "${search[@]}" \
    -DHOST_SOURCE="$source/examples/stream_host.c" >/dev/null
cmake --build "$work/build" >/dev/null
read -ra flags <<<"$(pkg-config --cflags --libs vqns)"
cc "$source/examples/stream_host.c" "${flags[@]}" -o "$work/build/host-pkg-config"

head -c 32000 /dev/urandom >"$work/in.raw"
for host in vqns vqns-static pkg-config; do
    library=$(ldd "$work/build/host-$host" | awk '$1 == "libvqns.so.0" {print $3}')
    if [ $host = vqns-static ]; then
        [ -z "$library" ] || { echo "host-$host: takes $library"; exit 1; }
    else
        [[ $(realpath "$library") == "$prefix"/lib/* ]] || { echo "host-$host: takes '$library'"; exit 1; }
    fi
    "$work/build/host-$host" <"$work/in.raw" >"$work/$host.raw"
    [ "$(stat -c %s "$work/$host.raw")" -eq 32000 ] || { echo "host-$host: wrong length"; exit 1; }
    # The first 50 ms are silence, what follows is not.
    head -c 1600 "$work/$host.raw" | cmp -s - <(head -c 1600 /dev/zero) || { echo "host-$host: no silence first"; exit 1; }
    ! tail -c 16000 "$work/$host.raw" | cmp -s - <(head -c 16000 /dev/zero) || { echo "host-$host: silent"; exit 1; }
    cmp "$work/vqns.raw" "$work/$host.raw"
done
