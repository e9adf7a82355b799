# Every library and program of the project. Sources are collected per folder so that adding a
# file to a folder is enough to build it.

file(WRITE ${PROJECT_BINARY_DIR}/drovel_empty.cpp "// no sources yet\n")

function(drovel_sources out)
  set(files)
  foreach(dir IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS
      ${PROJECT_SOURCE_DIR}/${dir}/*.cpp ${PROJECT_SOURCE_DIR}/${dir}/*/*.cpp)
    list(APPEND files ${found})
  endforeach()
  if(NOT files)
    # A folder may still be empty while its library is being written.
    set(files ${PROJECT_BINARY_DIR}/drovel_empty.cpp)
  endif()
  set(${out} ${files} PARENT_SCOPE)
endfunction()

# Template engine and HTML entities: ICU only.
drovel_sources(template_sources src/template src/html)
add_library(drovel_template STATIC ${template_sources})
target_include_directories(drovel_template
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drovel_template PUBLIC ICU::uc ICU::i18n ICU::data)

# Core library: logger, app configuration, HTTP service, database manager, core state; with the
# platform-independent parts of the seams (queues, platform values) that every platform shares.
drovel_sources(core_sources src/core src/platform)
add_library(drovel_core STATIC ${core_sources})
target_include_directories(drovel_core
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drovel_core PUBLIC SQLite::SQLite3 simdjson::simdjson Threads::Threads)

# The Notify module.
drovel_sources(notify_sources src/manager src/data src/Helpers)
add_library(drovel_notify STATIC ${notify_sources})
target_include_directories(drovel_notify
  PUBLIC ${PROJECT_SOURCE_DIR}/include
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drovel_notify PUBLIC drovel_core drovel_template)

# Linux reference platform.
drovel_sources(platform_sources platform/linux)
add_library(drovel_platform_linux STATIC ${platform_sources})
target_include_directories(drovel_platform_linux
  PUBLIC ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/platform
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
# The platform library supplies the module's Manager::shared() on its reference platform.
target_link_libraries(drovel_platform_linux PUBLIC drovel_notify CURL::libcurl Threads::Threads)

# Sample backend (served by `drovel-notify backend`, embedded by the simulator).
drovel_sources(backend_sources tools/backend)
add_library(drovel_backend STATIC ${backend_sources})
target_include_directories(drovel_backend
  PUBLIC ${PROJECT_SOURCE_DIR}/tools
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drovel_backend PUBLIC drovel_notify PRIVATE PkgConfig::HTTPLIB)

# Scenario runner (played by `drovel-notify simulate`).
drovel_sources(simulator_sources tools/simulator)
add_library(drovel_simulator STATIC ${simulator_sources})
target_include_directories(drovel_simulator
  PUBLIC ${PROJECT_SOURCE_DIR}/tools
  PRIVATE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drovel_simulator PUBLIC drovel_backend drovel_platform_linux)

# Command-line tool.
drovel_sources(cli_sources tools/cli)
add_executable(drovel-notify ${cli_sources})
target_include_directories(drovel-notify PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tools)
target_link_libraries(drovel-notify PRIVATE drovel_notify drovel_platform_linux drovel_backend drovel_simulator CLI11::CLI11)
target_compile_definitions(drovel-notify PRIVATE DROVEL_VERSION="${PROJECT_VERSION}"
  DROVEL_EXAMPLES_DIR="${PROJECT_SOURCE_DIR}/examples")

if(DROVEL_BUILD_TESTS)
  enable_testing()
  find_package(GTest REQUIRED)
  include(GoogleTest)

  drovel_sources(support_sources tests/support)
  add_library(drovel_test_support STATIC ${support_sources})
  target_include_directories(drovel_test_support PUBLIC ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(drovel_test_support PUBLIC drovel_notify drovel_platform_linux
    PkgConfig::HTTPLIB GTest::gtest GTest::gmock)
  target_compile_definitions(drovel_test_support PUBLIC
    DROVEL_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    DROVEL_CLI_PATH="$<TARGET_FILE:drovel-notify>")

  # One test program per folder of tests/ (tests_<folder>), found by itself; support/ holds the
  # fakes and helpers that every program links.
  file(GLOB test_folders LIST_DIRECTORIES true CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/*)
  foreach(folder IN LISTS test_folders)
    get_filename_component(area ${folder} NAME)
    if(NOT IS_DIRECTORY ${folder} OR area STREQUAL "support")
      continue()
    endif()
    file(GLOB area_sources CONFIGURE_DEPENDS ${folder}/*.cpp)
    if(area_sources)
      add_executable(tests_${area} ${area_sources})
      target_link_libraries(tests_${area} PRIVATE drovel_test_support GTest::gtest_main)
      add_dependencies(tests_${area} drovel-notify)
      gtest_discover_tests(tests_${area} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
    endif()
  endforeach()
  if(TARGET tests_backend)
    target_link_libraries(tests_backend PRIVATE drovel_backend)
  endif()
endif()

if(DROVEL_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
  # Each bench/*.cpp is one benchmark program.
  file(GLOB bench_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bench/*.cpp)
  foreach(source IN LISTS bench_sources)
    get_filename_component(name ${source} NAME_WE)
    add_executable(bench_${name} ${source})
    target_include_directories(bench_${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/bench)
    target_link_libraries(bench_${name} PRIVATE drovel_notify drovel_platform_linux drovel_backend drovel_simulator
      benchmark::benchmark)
  endforeach()
endif()

if(DROVEL_FUZZ)
  # Each fuzz/*.cpp is one libFuzzer program, fuzz_<name>.
  file(GLOB fuzz_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/*.cpp)
  foreach(source IN LISTS fuzz_sources)
    get_filename_component(name ${source} NAME_WE)
    add_executable(fuzz_${name} ${source})
    target_include_directories(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/platform)
    target_link_libraries(fuzz_${name} PRIVATE drovel_notify drovel_platform_linux)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  endforeach()
endif()
