# Sourced by the scripts: installs the Debian 12 packages Tarnwell builds with, when any is missing.
TARNWELL_PACKAGES=(
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-svg-dev qt6-wayland libgl-dev
  libsqlite3-dev libssl-dev libplist-dev libicu-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  xfsprogs e2fsprogs util-linux trash-cli python3 fonts-dejavu-core
)

tarnwell_install_deps() {
  local missing=()
  for p in "${TARNWELL_PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$p")
    fi
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing missing Debian packages: ${missing[*]}"
  local sudo=()
  [ "$(id -u)" -ne 0 ] && sudo=(sudo)
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -q
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}
