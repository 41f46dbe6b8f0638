#!/bin/bash
# Tests the front desk in a real browser, Chromium, against faxtray-web, faxtrayd, faxregd and rpcbind on a private host
# (namespaces): carries out the steps of tests/data/web/desk.steps. On a fresh Debian 12 it first installs what is missing.
#
# usage: scripts/web-test.sh    as root
#
# Leaves pictures of the page in build/web-shots: wide and narrow, light and dark, in English and German. README shows
# frontdesk.png; to renew it: cp build/web-shots/frontdesk.png docs
# WEB_BUILD: the build to run, by default the release, brought up to date.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

need chromium chromium-driver python3-selenium fonts-inter pngquant
programs_for web-test.sh "${WEB_BUILD:-}" faxtrayd faxregd faxtray faxconv faxtray-web
rm -rf build/web-shots && mkdir -p build/web-shots
scratch=$(mktemp -d) # for the site, and for what browsers leave
trap 'rm -rf "$scratch"' EXIT
TMPDIR=$scratch "$build/bin/on_private_host" timeout 900 /usr/bin/python3 -B tests/web/browser_test.py "$build/bin" "$PWD/build/web-shots"
# Fewer colours, fewer bytes: the page has few of both.
pngquant --force --speed 1 --quality 60-100 --output build/web-shots/frontdesk.png 48 build/web-shots/frontdesk.png
