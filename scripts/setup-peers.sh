#!/usr/bin/env bash
# Installs the stores the side-by-side benchmark in bench/peers/ compares the
# shared-memory tables with: LMDB, Redis with hiredis, Boost.Interprocess.
# Opt-in: the library, its tests and its other benchmarks do not need them.
# Idempotent, like scripts/setup.sh (which does the installing).
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"

# The benchmark starts its own Redis on a free loopback port; the package's
# system service is not wanted, so it is neither started nor enabled here.
policy=/usr/sbin/policy-rc.d
fresh_redis=0
if ! dpkg-query -W -f='${Status}' redis-server 2>/dev/null | grep -q 'install ok installed'; then
  fresh_redis=1
fi
own_policy=0
if [ "$fresh_redis" = 1 ] && [ ! -e "$policy" ] && [ "$(id -u)" -eq 0 ]; then
  printf '#!/bin/sh\nexit 101\n' >"$policy"
  chmod 755 "$policy"
  own_policy=1
  trap 'rm -f "$policy"' EXIT
fi

bash "$here/setup.sh" liblmdb-dev libhiredis-dev redis-server libboost-dev

if [ "$fresh_redis" = 1 ] && command -v systemctl >/dev/null 2>&1 &&
  [ -d /run/systemd/system ]; then
  SUDO=
  [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO systemctl disable --now redis-server >/dev/null 2>&1 || true
fi
[ "$own_policy" = 1 ] && rm -f "$policy"
exit 0
