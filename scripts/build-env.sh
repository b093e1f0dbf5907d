# Sourced by the build scripts. The plain build uses the flags a Debian package build passes
# (optimisation, hardening, fortified calls), so that what we test is what a distribution ships.
# CMake does not read CPPFLAGS, so they join the compiler flags.
yovo_release_env() {
    local cppflags
    cppflags="$(dpkg-buildflags --get CPPFLAGS)"
    export CFLAGS="$(dpkg-buildflags --get CFLAGS) $cppflags"
    export CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $cppflags"
    export LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
    export CC=gcc CXX=g++
}

# A compiler cache, where the machine has one, for every build of the scripts alike (a build made
# with it and one without would compile everything again).
yovo_launcher_args=()
if command -v ccache >/dev/null; then
    # The compiler must see absolute source paths: the source root is mapped away from them so
    # that texts name files relative to it, which a cache's relative-path rewriting would defeat.
    export CCACHE_BASEDIR=
    yovo_launcher_args=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
