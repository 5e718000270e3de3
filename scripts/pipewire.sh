#!/usr/bin/env bash
# PipeWire and WirePlumber in a folder of their own, for the tests: pipewire.sh [FOLDER], build/pipewire without one.
# Nothing on the machine is set up or started. What they link to: liblilv-0-0, liblua5.3-0, libglib2.0-0, libreadline8,
# libsndfile1.
set -eu -o pipefail
folder=${1:-$(dirname "$0")/../build/pipewire}
mkdir -p "$folder"
cd "$folder"
[ ! -e complete ] || exit 0
apt-get download -qq -o APT::Sandbox::User=root \
    pipewire-bin libpipewire-0.3-0 libpipewire-0.3-modules libspa-0.2-modules wireplumber libwireplumber-0.4-0
# What it takes to play, filter and record; nothing that drives devices or talks to the desktop.
wanted=(bin/{pipewire,wireplumber,pw-cat,pw-cli,pw-link,pw-play,pw-record} share/wireplumber/scripts/'*'.lua
    lib/'*'/{libpipewire-0.3.so,libwireplumber-0.4.so,wireplumber-0.4/libwireplumber-module-}'*'
    lib/'*'/pipewire-0.3/libpipewire-module-{access,adapter,client-node,filter-chain,link-factory,metadata}.so
    lib/'*'/pipewire-0.3/libpipewire-module-{protocol-native,session-manager,spa-node-factory}.so
    lib/'*'/spa-0.2/{support/libspa-support,audioconvert/libspa-audioconvert,audiomixer/libspa-audiomixer}.so)
for package in *.deb; do
    dpkg-deb --fsys-tarfile "$package"
done | tar -x --ignore-zeros --wildcards "${wanted[@]/#/./usr/}"
rm -- *.deb
touch complete
