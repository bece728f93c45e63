# shellcheck shell=bash
# Sourced by the other scripts: the Debian packages that the project needs, and how to install them.
# Says what it installs, installs only what is missing, and needs no network when nothing is missing.

# To build the libraries, the virtual devices and the program.
BUILD_PACKAGES="g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libusb-1.0-0-dev"
# For the demo, to create a network namespace.
DEMO_PACKAGES="iproute2 util-linux"
# To emulate a USB bus with a virtual device on it, which is built with the tests.
USB_PACKAGES="libumockdev-dev umockdev libgtest-dev libgmock-dev"
# To check the sources.
STYLE_PACKAGES="clang-format clang-tidy"
# To check the installed tree and the packages: another compiler with its sanitizers and the symbolizer
# of their reports, and tools to compare binary interfaces, make packages and read man pages.
INSTALL_PACKAGES="clang libclang-rt-dev llvm abigail-tools dpkg-dev file groff-base"
# To build and run the tests: the test framework, independent programs that ours are tested against, and
# tools to create network namespaces.
TEST_PACKAGES="$USB_PACKAGES $STYLE_PACKAGES $INSTALL_PACKAGES aravis-tools aravis-tools-cli tshark iproute2
    util-linux libwrap0 libnftables1 libnetfilter-conntrack3 srecord binutils doxygen valgrind"
# TFTP servers that our client is tested against. Their packages would start services and conflict with
# one another, so they are unpacked, not installed. The libraries that they need are named above.
PEER_PACKAGES="tftpd-hpa atftpd dnsmasq-base"
# For benchmarks/compare: tools that count, and what the library is held against.
BENCHMARK_PACKAGES="strace libaravis-dev"
BENCHMARK_PEER_PACKAGES="tftpd-hpa tftp-hpa busybox"
PEER_DIRECTORY="build/peers"

is_installed()
{
    dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null | grep -qx installed
}

# install_missing PACKAGE...: as root, or through sudo.
install_missing()
{
    local lMissing="" lPackage lSudo=""
    for lPackage in "$@"; do
        is_installed "$lPackage" || lMissing="$lMissing $lPackage"
    done
    [ -n "$lMissing" ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || {
            echo "These Debian packages are missing:$lMissing" >&2
            echo "Run this script as root, or install sudo." >&2
            return 1
        }
        lSudo=sudo
    fi
    echo "Installing from Debian:$lMissing"
    # Refresh the lists only where they cannot name a package.
    # shellcheck disable=SC2086
    if ! apt-cache show $lMissing >/dev/null 2>&1; then
        $lSudo apt-get update -qq || return 1
    fi
    # shellcheck disable=SC2086
    $lSudo env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends $lMissing >/dev/null || {
        $lSudo apt-get update -qq &&
            $lSudo env DEBIAN_FRONTEND=noninteractive \
                apt-get install -y -qq --no-install-recommends $lMissing >/dev/null
    }
}

# unpack_peers: run it in the project's root. It says which packages cannot be fetched; the tests that
# need them are then skipped.
unpack_peers()
{
    local lPackage lTemporary
    for lPackage in $PEER_PACKAGES; do
        [ ! -e "$PEER_DIRECTORY/$lPackage" ] || continue
        echo "Unpacking from Debian into $PEER_DIRECTORY: $lPackage"
        lTemporary=$(mktemp -d) || return 1
        mkdir -p "$PEER_DIRECTORY"
        if (cd "$lTemporary" && apt-get download -qq "$lPackage" >/dev/null 2>&1) &&
            dpkg-deb -x "$lTemporary"/*.deb "$lTemporary/$lPackage"; then
            mv "$lTemporary/$lPackage" "$PEER_DIRECTORY/$lPackage"
        else
            echo "$lPackage cannot be fetched; its tests will be skipped." >&2
        fi
        rm -rf "$lTemporary"
    done
}
