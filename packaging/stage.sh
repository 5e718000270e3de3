#!/usr/bin/env bash
# stage.sh SOURCE STAGED CONTROL VERSION COMPONENT=PACKAGE...: completes the installed trees STAGED/COMPONENT/usr with
# what a Debian package holds besides, and writes into CONTROL the library's symbols, shlibs and triggers and each
# component's dependencies, COMPONENT.depends. Files get the date SOURCE_DATE_EPOCH.
set -eu -o pipefail
source=$1 staged=$2 control=$3 version=$4
shift 4
umask 022
mkdir -p "$control"
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
sections=(--remove-section=.comment --remove-section=.note)

for pair in "$@"; do
    component=${pair%=*} package=${pair#*=}
    root=$staged/$component
    doc=$root/usr/share/doc/$package
    mkdir -p "$doc" "$root/usr/share/lintian/overrides"
    cp "$source/packaging/copyright" "$doc"
    gzip -9n <"$source/packaging/changelog" >"$doc/changelog.Debian.gz"
    sed "s/^PACKAGE:/$package:/" "$source/packaging/lintian-overrides" >"$root/usr/share/lintian/overrides/$package"
    case $component in
        runtime)
            gzip -9n <"$source/CHANGELOG.md" >"$doc/changelog.gz"
            cp "$source/ns/dnn/model/README.md" "$doc/README.model.md"
            ;;
        development)
            mkdir "$doc/examples"
            cp "$source/examples/stream_host.c" "$doc/examples"
            ;;
    esac
    find "$root/usr" -path '*/man/*' -type f ! -name '*.gz' -exec gzip -9n {} +
    find "$root/usr" -type f -name '*.a' -exec strip -D --strip-debug "${sections[@]}" {} +
    find "$root/usr" -type f -name '*.so*' -exec strip --strip-unneeded "${sections[@]}" {} +
    find "$root/usr" -path '*/bin/*' -type f -exec strip "${sections[@]}" {} +
    find "$root/usr" -type f ! -path '*/bin/*' -exec chmod 644 {} +
    find "$root/usr" -type d -exec chmod 755 {} +
    find "$root" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
    # The dpkg tools look for packages that are being built under debian/ where they run.
    mkdir -p "$scratch/debian/$package/DEBIAN"
    cp -a "$root/usr" "$scratch/debian/$package/"
done

cd "$scratch"
printf 'Source: vqns\n' >debian/control
library=$(find debian -type f -name 'libvqns.so.*')
package=$(cut -d/ -f2 <<<"$library")
# A name that is missing or new is an error (-c4): the list in the source is the promise.
dpkg-gensymbols -c4 -q "-p$package" "-v$version" "-I$source/packaging/$package.symbols" "-e$library" \
    "-Pdebian/$package" >&2
cp "debian/$package/DEBIAN/symbols" "$control"
printf 'libvqns %s %s (>= %s)\n' "${package#libvqns}" "$package" "${version%-*}" >"$control/shlibs"
printf 'activate-noawait ldconfig\n' >"$control/triggers"

for pair in "$@"; do
    mapfile -t -d '' files < <(find "debian/${pair#*=}/usr" -type f \( -path '*/bin/*' -o -name '*.so*' \) -print0)
    if [ ${#files[@]} -gt 0 ]; then
        dpkg-shlibdeps -O "${files[@]}" | sed -n 's/^shlibs:Depends=//p'
    fi >"$control/${pair%=*}.depends"
done
