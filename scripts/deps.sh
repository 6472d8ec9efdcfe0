# Sourced by scripts/run and scripts/test: installs the Debian packages that
# are missing (as root, with apt-get), or prints the apt-get line to run.
NUXZO_PACKAGES="cmake g++ make unzip googletest libgtest-dev clang-14 libclang-rt-14-dev
  zlib1g-dev libdeflate-dev libisal-dev liblz4-dev liblzo2-dev libbz2-dev libzfp-dev libxxhash-dev
  gzip bzip2 pbzip2 lbzip2 lz4 lzop zfp"

nuxzo_install_deps() {
    local missing=""
    for p in $NUXZO_PACKAGES; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing="$missing $p"
    done
    [ -z "$missing" ] && return 0
    if [ "$(id -u)" = 0 ]; then
        echo "installing:$missing"
        export DEBIAN_FRONTEND=noninteractive
        apt-get update -qq && apt-get install -y -qq --no-install-recommends $missing >/dev/null
    else
        echo "missing packages; run:"
        echo "  sudo apt-get install -y$missing"
        return 1
    fi
}
