#!/bin/sh
# SPDX-License-Identifier: MIT
# Runs a command in the current (private) mount namespace with a fresh /tmp
# and a throw-away overlay on /etc, so the host's own configuration and
# release files neither leak in nor get touched.
#   FW_STAGE  directory with optional etc/ and tmp/ trees copied in first
#   FW_CWD    working directory of the command
set -e
mount -t tmpfs fwtmp /tmp
mkdir -p /tmp/.fw-etc/upper /tmp/.fw-etc/work
if ! mount -t overlay fwetc -o lowerdir=/etc,upperdir=/tmp/.fw-etc/upper,workdir=/tmp/.fw-etc/work /etc 2>/dev/null; then
    # No overlay support here: a private copy of /etc does the same job.
    mkdir -p /tmp/.fw-etc/copy
    cp -a /etc/. /tmp/.fw-etc/copy/ 2>/dev/null || true
    mount --bind /tmp/.fw-etc/copy /etc
fi
# Hide the overlay's own directories from the command.
mount -t tmpfs fwtmp /tmp
rm -f /etc/SuSE-release /etc/redhat-release /etc/adapters.properties \
      /etc/flashwright.properties /etc/agent.properties
if [ -n "$FW_STAGE" ] && [ -d "$FW_STAGE/etc" ]; then cp -R "$FW_STAGE/etc/." /etc/; fi
# Owners, modes and links of the staged /tmp files matter: keep them.
if [ -n "$FW_STAGE" ] && [ -d "$FW_STAGE/tmp" ]; then cp -a "$FW_STAGE/tmp/." /tmp/ && chmod 1777 /tmp; fi
cd "$FW_CWD"
unset FW_STAGE FW_CWD
exec "$@"
