# Finds every third-party package once; all of them are Debian 12 packages (see packages.txt).
find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(Boost 1.74 REQUIRED)                               # Boost::headers
find_package(hwy 1.0.3 REQUIRED)                                # hwy::hwy
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile>=1.2.0)  # shared
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr>=0.1.3)        # shared
pkg_check_modules(CAIRO REQUIRED IMPORTED_TARGET cairo>=1.16)        # shared
pkg_check_modules(PORTAUDIO REQUIRED IMPORTED_TARGET portaudio-2.0>=19)  # shared
find_package(CLI11 2.1 REQUIRED)                                # CLI11::CLI11
find_package(fmt 9.1 REQUIRED)                                  # fmt::fmt
find_package(nlohmann_json 3.11 REQUIRED)                       # nlohmann_json::nlohmann_json
if(ZUC_LV2)
  pkg_check_modules(LV2 REQUIRED IMPORTED_TARGET lv2>=1.18)         # PkgConfig::LV2, headers only
endif()
if(BUILD_TESTING)
  find_package(GTest 1.12 REQUIRED)                             # GTest::gmock GTest::gtest_main
  pkg_check_modules(EBUR128 REQUIRED IMPORTED_TARGET libebur128>=1.2)  # MIT; a second opinion on loudness
endif()
if(ZUC_BENCHMARKS)
  find_package(benchmark 1.7 REQUIRED)                          # benchmark::benchmark_main
endif()
