# To be sourced: what the scripts need from Debian 12, and how it is installed.

BUILD_PACKAGES=(g++ cmake ninja-build nlohmann-json3-dev libpng-dev libcairo2-dev libgtest-dev libgmock-dev
                python3 python3-yaml python3-jinja2)
RUN_PACKAGES=(nginx)
TEST_PACKAGES=(python3-pytest python3-jsonschema curl)
BENCH_PACKAGES=(wrk libfcgi-dev)

# install_packages NAME...: installs those that are missing, with sudo only where the user is not root.
install_packages() {
    local name missing=() as_root=()
    for name in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    "${as_root[@]}" apt-get update -q
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
}
