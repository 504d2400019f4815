# To be sourced: how the scripts build.

# build PRESET [ARGUMENT...]: configures a preset and builds it; the arguments go to "cmake --build". Scripts that are
# started at the same time build one after the other, because they share the build folder.
build() (
    mkdir -p build
    exec 9<build
    flock --nonblock 9 || { echo "Waiting for another build in this folder" && flock 9; }
    echo "Building preset $1"
    cmake --preset "$1"
    cmake --build --preset "$@"
)
