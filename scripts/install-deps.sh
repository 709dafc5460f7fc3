#!/usr/bin/env bash
# Installs every Debian package the project needs to build, test and run. Idempotent: packages
# that are present are left alone, and the package lists are refreshed only when one is missing.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config clang
  libsqlite3-dev sqlite3
  libcurl4-openssl-dev ca-certificates
  openssl
  libpcre2-dev
  libxml2-dev
  libgumbo-dev
  libsodium-dev
  libuchardet-dev
  libicu-dev
  libmariadb-dev mariadb-server mariadb-client
  libxlsxwriter-dev
  libzip-dev zipcmp zipmerge ziptool
  libcli11-dev
  libfmt-dev
  googletest libgtest-dev libgmock-dev
  libbenchmark-dev
  libcpp-httplib-dev
  nginx
  python3-openpyxl
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
# Keep the packages' own services (MariaDB, nginx) from starting: the tests and the demo start
# their own servers, on loopback, from their own configurations. Without a policy of the
# machine's own, one that refuses every start is put in place for the install.
policy=/usr/sbin/policy-rc.d
own_policy=""
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$policy" >/dev/null
  $SUDO chmod 755 "$policy"
  own_policy=1
fi
status=0
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" || status=$?
if [ -n "$own_policy" ]; then $SUDO rm -f "$policy"; fi
exit $status
