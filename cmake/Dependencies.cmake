# Everything that the project links and does not build itself. scripts/setup installs it.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

find_package(Qt5 5.15 REQUIRED COMPONENTS Core)
find_package(Protobuf REQUIRED)
find_package(gRPC CONFIG REQUIRED)
find_package(log4cplus REQUIRED)
find_package(SQLiteCpp REQUIRED)
find_package(CLI11 REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(Eigen3 REQUIRED NO_MODULE)
pkg_check_modules(sndfile REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(soxr REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(alsa REQUIRED IMPORTED_TARGET alsa)
pkg_check_modules(kissfft REQUIRED IMPORTED_TARGET kissfft-float)
pkg_check_modules(nanomsg REQUIRED IMPORTED_TARGET nanomsg)

if(BUILD_TESTING)
    find_package(GTest REQUIRED)
endif()
if(VESK_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()

find_program(VESK_GRPC_CPP_PLUGIN grpc_cpp_plugin REQUIRED)
mark_as_advanced(VESK_GRPC_CPP_PLUGIN)
