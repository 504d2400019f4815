# To be sourced: what the scripts need from Debian 12, and how it is installed.

BUILD_PACKAGES=(g++ cmake ninja-build nlohmann-json3-dev libpng-dev libcairo2-dev libgtest-dev libgmock-dev
                python3 python3-yaml python3-jinja2)
# For the browser console's plotting library. Beside an npm of one's own, Debian's is not needed.
command -v npm >/dev/null || BUILD_PACKAGES+=(npm)
WEB_SERVERS=(nginx lighttpd)
RUN_PACKAGES=("${WEB_SERVERS[@]}" lighttpd-modules-lua)
PACKAGE_PACKAGES=(debhelper lintian)
TEST_PACKAGES=(python3-pytest python3-jsonschema python3-pil curl "${PACKAGE_PACKAGES[@]}" debootstrap systemd-container)
# The console is tested in a real browser. Where Node.js comes from elsewhere, it stays.
BROWSER_PACKAGES=(chromium)
command -v node >/dev/null || BROWSER_PACKAGES+=(nodejs)
BENCH_PACKAGES=(wrk libfcgi-dev)

# For 32-bit ARM: the compiler, and what runs its programs here.
ARMHF_PACKAGES=(g++-arm-linux-gnueabihf qemu-user)
# What is linked, for script/sysroot: libraries, and what is needed to build with them.
SYSROOT_PACKAGES=(libpng16-16 zlib1g libcairo2
                  libpng-dev zlib1g-dev libcairo2-dev libgtest-dev libgmock-dev nlohmann-json3-dev)
# What the libraries need and need not come with them.
SYSROOT_PRESENT=(libc6 libgcc-s1 libstdc++6 fontconfig-config)

# run_as_root COMMAND...: with sudo only where the user is not root.
run_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# stop_web_servers NAME...: ends those of the web servers that are among the names, just installed. Debian starts a web
# server at once and with the machine; the scripts start their own, on other ports.
stop_web_servers() {
    local name
    for name in "${WEB_SERVERS[@]}"; do
        [[ " $* " == *" $name "* ]] || continue
        echo "Stopping the $name that Debian has started"
        run_as_root service "$name" stop || true
        run_as_root update-rc.d "$name" disable
    done
}

# install_packages NAME...: installs those that are missing.
install_packages() {
    local name missing=()
    for name in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || missing+=("$name")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing ${missing[*]}"
    run_as_root apt-get update -q
    run_as_root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}" || return
    stop_web_servers "${missing[@]}"
}
