# Sourced by scripts that need real game data: a Debian package, unpacked and not installed.

# unpack_game PACKAGE FOLDER: unpacks the package to FOLDER/PACKAGE, which is recreated. Needs the package
# lists, and fetches them if the download fails.
unpack_game() {
  local package=$1 folder=$2 as_root=()
  [[ $(id -u) -eq 0 ]] || as_root=(sudo)
  mkdir -p "$folder/download"
  local archive
  archive() { find "$folder/download" -name "${package}_*.deb" | sort | tail -1; }
  fetch() { (cd "$folder/download" && apt-get -qq download "$package"); }
  if [[ -z $(archive) ]]; then
    # Without package lists, or with old ones, the first attempt fails.
    { fetch || { "${as_root[@]}" apt-get -qq update && fetch; }; } >"$folder/download/log" 2>&1 ||
      { cat "$folder/download/log" >&2; echo "can't download the package $package" >&2; return 1; }
  fi
  rm -rf "${folder:?}/$package"
  dpkg-deb -x "$(archive)" "$folder/$package"
}
