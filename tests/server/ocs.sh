#!/usr/bin/env bash
# A real OCS Inventory NG server with its MariaDB, from Debian's packages, on loopback
# ports of its own, for the tests that send scans to it.
#   ocs.sh up     install what is missing, start the database and Apache (idempotent)
#   ocs.sh down   stop both and remove their state
#   ocs.sh sql    run the mariadb client on the server's database (stdin or arguments)
#   ocs.sh url    print the address inventories go to
# Nothing uses systemd or the standard ports; everything lives under $OCS_STATE.
set -euo pipefail

STATE="${OCS_STATE:-/tmp/invscan-ocs}"
HTTP_PORT="${OCS_HTTP_PORT:-18478}"
DB_PORT="${OCS_DB_PORT:-13378}"
CACHE="${OCS_CACHE:-/var/cache/invscan-ocs}" # the schema, kept between runs
PKGS=(ocsinventory-server mariadb-server mariadb-client apache2 libapache2-mod-perl2
  libxml-parser-perl)

say() { echo "ocs.sh: $*" >&2; }
sock="$STATE/mysqld.sock"
dbpid="$STATE/mysqld.pid"
webpid="$STATE/apache2.pid"

alive() { local p; p="$(cat "$1" 2>/dev/null)" && [ -n "$p" ] && kill -0 "$p" 2>/dev/null; }

sql() { mariadb --protocol=socket -S "$sock" -uroot "$@"; }

# Whether something answers HTTP on the server's port (bash's own socket, no client).
http_up() {
  exec 3<>"/dev/tcp/127.0.0.1/$HTTP_PORT" 2>/dev/null || return 1
  printf 'GET /ocsinventory HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n' >&3
  local line
  IFS= read -r -t 5 line <&3 || line=
  exec 3>&- 3<&-
  [[ "$line" == HTTP/1.* ]]
}

install_packages() {
  local need=() p
  for p in "${PKGS[@]}"; do
    [ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" = "install ok installed" ] || need+=("$p")
  done
  [ "${#need[@]}" -eq 0 ] && return 0
  [ "$(id -u)" -eq 0 ] || { say "packages missing (${need[*]}) and not root"; return 1; }
  # Packages must not start their services: no init here, and the ports are not ours.
  local policy=/usr/sbin/policy-rc.d made=0
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' > "$policy" && chmod 755 "$policy" && made=1
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null 2>&1 ||
    { apt-get update -qq || true; apt-get install -y -qq --no-install-recommends "${need[@]}" >/dev/null; }
  [ "$made" -eq 0 ] || rm -f "$policy"
}

# The schema comes with the web console's package; only its SQL files are taken, so
# that PHP is not installed.
schema_files() {
  local dir="$CACHE/reports"
  if [ ! -f "$dir/usr/share/ocsinventory-reports/files/ocsbase_new.sql" ]; then
    local tmp
    tmp="$(mktemp -d)"
    (cd "$tmp" && apt-get download ocsinventory-reports >/dev/null 2>&1) ||
      { apt-get update -qq || true; (cd "$tmp" && apt-get download ocsinventory-reports >/dev/null 2>&1); }
    mkdir -p "$dir"
    dpkg-deb -x "$tmp"/ocsinventory-reports_*.deb "$tmp/x"
    rm -rf "$dir/usr"
    mkdir -p "$dir/usr/share/ocsinventory-reports"
    cp -r "$tmp/x/usr/share/ocsinventory-reports/files" "$dir/usr/share/ocsinventory-reports/"
    rm -rf "$tmp"
  fi
  echo "$dir/usr/share/ocsinventory-reports/files"
}

start_db() {
  alive "$dbpid" && return 0
  local fresh=0
  if [ ! -d "$STATE/db/mysql" ]; then
    fresh=1
    mkdir -p "$STATE/db"
    mariadb-install-db --no-defaults --user=root --datadir="$STATE/db" --auth-root-authentication-method=normal \
      --skip-test-db >"$STATE/install-db.log" 2>&1 || { cat "$STATE/install-db.log" >&2; return 1; }
  fi
  # The server and its tmp files run as root from private paths.
  mariadbd --no-defaults --user=root --datadir="$STATE/db" --socket="$sock" --pid-file="$dbpid" \
    --bind-address=127.0.0.1 --port="$DB_PORT" --skip-name-resolve --innodb-buffer-pool-size=32M \
    --log-error="$STATE/mysqld.err" --character-set-server=utf8mb4 --sql-mode=NO_ENGINE_SUBSTITUTION \
    </dev/null >/dev/null 2>&1 &
  local i
  for i in $(seq 1 150); do
    sql -e 'SELECT 1' >/dev/null 2>&1 && break
    sleep 0.1
  done
  sql -e 'SELECT 1' >/dev/null 2>&1 || { say "mariadbd did not start"; tail -20 "$STATE/mysqld.err" >&2; return 1; }
  [ "$fresh" -eq 1 ] || return 0

  local files f
  files="$(schema_files)"
  sql -e "CREATE DATABASE ocsweb CHARACTER SET utf8mb4;
    CREATE USER 'ocs'@'127.0.0.1' IDENTIFIED BY 'ocs'; CREATE USER 'ocs'@'localhost' IDENTIFIED BY 'ocs';
    GRANT ALL ON ocsweb.* TO 'ocs'@'127.0.0.1'; GRANT ALL ON ocsweb.* TO 'ocs'@'localhost';"
  sql ocsweb < "$files/ocsbase_new.sql"
  for f in $(seq 7040 7069); do
    [ -f "$files/update/$f.sql" ] && sql --force ocsweb < "$files/update/$f.sql" >/dev/null 2>&1 || true
  done
  # The 2.8.1 server still writes a column and a table that later schemas dropped.
  sql ocsweb -e "ALTER TABLE software_name ADD COLUMN IF NOT EXISTS CATEGORY INT(11) DEFAULT NULL;
    CREATE TABLE IF NOT EXISTS unixusers (ID INT(11) NOT NULL AUTO_INCREMENT,
      HARDWARE_ID INT(11) NOT NULL, ID_USERS VARCHAR(255) DEFAULT NULL,
      GID_USERS VARCHAR(255) DEFAULT NULL, NAME_USERS VARCHAR(255) DEFAULT NULL,
      HOME_USERS VARCHAR(255) DEFAULT NULL, SHELL_USERS VARCHAR(255) DEFAULT NULL,
      PRIMARY KEY (ID, HARDWARE_ID)) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4;"
}

start_web() {
  if alive "$webpid" && http_up; then return 0; fi
  mkdir -p "$STATE/web" "$STATE/log"
  chown www-data "$STATE/log" 2>/dev/null || chmod 777 "$STATE/log"
  # The package's server configuration with this database and log folder, without
  # the SOAP interface (it wants a password file and basic authentication).
  sed -e "s|OCS_DB_HOST .*|OCS_DB_HOST 127.0.0.1|" -e "s|OCS_DB_PORT .*|OCS_DB_PORT $DB_PORT|" \
    -e "s|OCS_DB_NAME .*|OCS_DB_NAME ocsweb|" -e "s|OCS_DB_LOCAL .*|OCS_DB_LOCAL ocsweb|" \
    -e "s|OCS_DB_USER .*|OCS_DB_USER ocs|" -e "s|OCS_DB_PWD .*|OCS_DB_PWD ocs|" \
    -e "s|OCS_OPT_LOGPATH .*|OCS_OPT_LOGPATH \"$STATE/log/\"|" \
    -e "s|OCS_OPT_LOGLEVEL .*|OCS_OPT_LOGLEVEL 1|" \
    -e '/PerlModule Apache::Ocsinventory::SOAP/,/<\/location>/d' \
    /etc/apache2/conf-available/ocsinventory-server.conf > "$STATE/web/ocs.conf"
  local mods=/usr/lib/apache2/modules
  cat > "$STATE/web/apache2.conf" <<EOF
ServerRoot "$STATE/web"
ServerName 127.0.0.1
Listen 127.0.0.1:$HTTP_PORT
PidFile "$webpid"
Mutex file:$STATE/web
User www-data
Group www-data
ErrorLog "$STATE/apache-error.log"
LogLevel warn
LoadModule mpm_prefork_module $mods/mod_mpm_prefork.so
LoadModule authz_core_module $mods/mod_authz_core.so
LoadModule perl_module $mods/mod_perl.so
StartServers 2
MinSpareServers 1
MaxSpareServers 3
MaxRequestWorkers 8
DocumentRoot "$STATE/web"
Include "$STATE/web/ocs.conf"
EOF
  apache2 -f "$STATE/web/apache2.conf" -k start >"$STATE/apache-start.log" 2>&1 ||
    { cat "$STATE/apache-start.log" "$STATE/apache-error.log" >&2 2>/dev/null; return 1; }
  local i
  for i in $(seq 1 100); do
    http_up && return 0
    sleep 0.1
  done
  say "apache2 did not answer on 127.0.0.1:$HTTP_PORT"
  tail -20 "$STATE/apache-error.log" >&2 || true
  return 1
}

stop_pid() { # pidfile, seconds to wait
  local p i
  p="$(cat "$1" 2>/dev/null)" || return 0
  [ -n "$p" ] && kill "$p" 2>/dev/null || return 0
  for i in $(seq 1 $(($2 * 10))); do
    kill -0 "$p" 2>/dev/null || return 0
    sleep 0.1
  done
  kill -9 "$p" 2>/dev/null || true
}

case "${1:-}" in
  up)
    install_packages
    mkdir -p "$STATE"
    chmod 755 "$STATE"
    start_db
    start_web
    say "up: http://127.0.0.1:$HTTP_PORT/ocsinventory, database on $sock"
    ;;
  down)
    stop_pid "$webpid" 10 # its parent takes its children down
    stop_pid "$dbpid" 30
    case "$STATE" in /tmp/*) rm -rf "$STATE" ;; *) say "left $STATE in place (not under /tmp)" ;; esac
    ;;
  sql)
    shift
    sql ocsweb "$@"
    ;;
  url) echo "http://127.0.0.1:$HTTP_PORT/ocsinventory" ;;
  *)
    echo "usage: ocs.sh up|down|sql [mariadb arguments]|url" >&2
    exit 2
    ;;
esac
