#!/usr/bin/env bash
# source_tarball.sh [OUT]: writes OUT/vqns-VERSION.tar.xz with the files of the last commit and prints its path; without
# OUT into build/dist. A commit gives the same bits wherever and whenever it is packed: git takes dates from the commit
# and names from its sorted tree, and the owner is always root.
set -eu -o pipefail
out=${1:+$(realpath -m "$1")}
cd "$(dirname "$0")/.."
out=${out:-build/dist}
if [ "$(git rev-parse --show-cdup 2>/dev/null || echo none)" != "" ]; then
    echo "source_tarball.sh: needs the git checkout of vqns" >&2
    exit 1
fi
[ -z "$(git status --porcelain)" ] || echo "source_tarball.sh: leaves out what is not committed" >&2
version=$(git show HEAD:CMakeLists.txt | sed -n 's/^project(vqns VERSION \([0-9.]*\).*/\1/p')
mkdir -p "$out"
tarball=$(realpath "$out")/vqns-$version.tar.xz
unset XZ_OPT XZ_DEFAULTS
# Settings of the user's that would change what git writes.
git -c tar.umask=0022 -c core.autocrlf=false -c core.attributesFile=/dev/null \
    archive --format=tar --prefix="vqns-$version/" HEAD | xz -6 -T1 >"$tarball.part"
mv "$tarball.part" "$tarball"
echo "$tarball"
