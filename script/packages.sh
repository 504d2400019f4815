# To be sourced: the packages of Debian 12 that the scripts need, and how they are installed.

BUILD_PACKAGES=(g++ cmake ninja-build nlohmann-json3-dev libpng-dev libcairo2-dev libgtest-dev
                libgmock-dev python3 python3-yaml python3-jinja2 esbuild)
# npm downloads the browser console's plotting library. An npm from elsewhere is used if there is one.
command -v npm >/dev/null || BUILD_PACKAGES+=(npm)
WEB_SERVERS=(nginx lighttpd)
RUN_PACKAGES=("${WEB_SERVERS[@]}" lighttpd-modules-lua lighttpd-mod-deflate)
PACKAGE_PACKAGES=(debhelper lintian)
TEST_PACKAGES=(python3-pytest python3-prometheus-client python3-jsonschema python3-pil mypy curl "${PACKAGE_PACKAGES[@]}"
               debootstrap systemd-container)
# The console is tested in a real browser. A Node.js from elsewhere is used if there is one.
BROWSER_PACKAGES=(chromium)
command -v node >/dev/null || BROWSER_PACKAGES+=(nodejs)
BENCH_PACKAGES=(wrk libfcgi-dev)
FUZZ_PACKAGES=(clang-14 libclang-rt-14-dev llvm-14)
SOAK_PACKAGES=(wrk python3-matplotlib)
# pylint looks into what a program imports.
LINT_PACKAGES=(clang-format clang-tidy pylint python3-matplotlib)
COVERAGE_PACKAGES=(gcovr)

# For 32-bit ARM: the compiler and the emulator.
ARMHF_PACKAGES=(g++-arm-linux-gnueabihf qemu-user)
# For script/sysroot: libraries and their development packages.
SYSROOT_PACKAGES=(libpng16-16 zlib1g libcairo2
                  libpng-dev zlib1g-dev libcairo2-dev libgtest-dev libgmock-dev nlohmann-json3-dev
                  libfcgi0ldbl libfcgi-dev)
# Dependencies of these libraries that script/sysroot leaves out.
SYSROOT_PRESENT=(libc6 libgcc-s1 libstdc++6 fontconfig-config)

# run_as_root COMMAND...: with sudo only where the user is not root.
run_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# stop_web_servers NAME...: stops and disables the web servers among the packages, which Debian starts when it installs
# them. The scripts start their own on other ports.
stop_web_servers() {
    local name
    for name in "${WEB_SERVERS[@]}"; do
        [[ " $* " == *" $name "* ]] || continue
        echo "Stopping the $name that Debian has started"
        run_as_root service "$name" stop || true
        run_as_root update-rc.d "$name" disable
    done
}

# missing_packages NAME...: prints the packages that are not installed, each on a line.
missing_packages() {
    local name
    for name in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$name" 2>/dev/null)" = installed ] || echo "$name"
    done
}

# apt_get ARGUMENT...: shows the progress, on a terminal as a bar, and waits while another program installs packages.
apt_get() {
    local progress=Dpkg::Progress=1
    [ ! -t 1 ] || progress=Dpkg::Progress-Fancy=1
    run_as_root env DEBIAN_FRONTEND=noninteractive apt-get -o "$progress" -o DPkg::Lock::Timeout=600 "$@"
}

# install_packages NAME...: installs the packages that are missing. Scripts that are started at the same time install one
# after the other.
install_packages() (
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    exec 9</var/lib/dpkg
    flock --nonblock 9 || { echo "Waiting for another script to install packages" && flock 9; }
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    echo "Installing ${missing[*]}"
    # What Debian starts during the installation must not keep the lock.
    apt_get update 9<&- && apt_get install -y --no-install-recommends "${missing[@]}" 9<&- &&
        stop_web_servers "${missing[@]}"
)
