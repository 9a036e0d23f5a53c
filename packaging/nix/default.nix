# nix-build packaging/nix
{ pkgs ? import <nixpkgs> { } }:

pkgs.stdenv.mkDerivation {
  pname = "vx";
  version = builtins.head
    (builtins.match ".*project\\(Vx VERSION ([0-9.]+).*" (builtins.readFile ../../CMakeLists.txt));
  src = pkgs.lib.cleanSource ../..;
  nativeBuildInputs = [ pkgs.cmake pkgs.ninja ];
  # Relative folders: the installed files refer to each other by them.
  cmakeFlags = [
    "-DCMAKE_INSTALL_LIBDIR=lib"
    "-DCMAKE_INSTALL_INCLUDEDIR=include"
    "-DVX_BUILD_TESTS=OFF"
    "-DVX_BUILD_TOOLS=OFF"
    "-DVX_BUILD_EXAMPLES=OFF"
  ];
  meta = {
    description = "The foundation library of a video-editing application";
    platforms = [ "x86_64-linux" ];
  };
}
