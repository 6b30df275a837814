# The libraries that the system stands on, as imported targets with system include directories.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(Boost 1.81 REQUIRED)
find_package(absl REQUIRED)
find_package(fmt REQUIRED)
find_package(spdlog REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
pkg_check_modules(RAPIDJSON REQUIRED IMPORTED_TARGET RapidJSON)
pkg_check_modules(MNL REQUIRED IMPORTED_TARGET libmnl)
pkg_check_modules(YAMLCPP REQUIRED IMPORTED_TARGET yaml-cpp)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)
pkg_check_modules(XXHASH REQUIRED IMPORTED_TARGET libxxhash)

# Without it the daemons do not report to a service manager.
add_library(quorin_systemd INTERFACE)
if(QUORIN_SYSTEMD)
  pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
  target_link_libraries(quorin_systemd INTERFACE PkgConfig::SYSTEMD)
  target_compile_definitions(quorin_systemd INTERFACE QUORIN_SYSTEMD)
endif()

# net-snmp allocates some fifty times for a row of a table: what the allocator costs, a walk costs.
add_library(quorin_allocator INTERFACE)
if(QUORIN_JEMALLOC)
  pkg_check_modules(JEMALLOC REQUIRED IMPORTED_TARGET jemalloc)
  # Nothing names it, so the linker would leave it out.
  target_link_libraries(quorin_allocator INTERFACE -Wl,--push-state,--no-as-needed PkgConfig::JEMALLOC -Wl,--pop-state)
endif()

find_library(LMDB_LIBRARY lmdb REQUIRED)
add_library(quorin_lmdb INTERFACE)
target_link_libraries(quorin_lmdb INTERFACE ${LMDB_LIBRARY})

# net-snmp publishes its link line through a script; its compile flags carry defines of its own build that must
# not reach our code, so only the libraries are taken from it.
find_library(NETSNMP_LIBRARY netsnmp REQUIRED)
find_library(NETSNMP_AGENT_LIBRARY netsnmpagent REQUIRED)
find_library(NETSNMP_MIBS_LIBRARY netsnmpmibs REQUIRED)
add_library(quorin_netsnmp INTERFACE)
target_link_libraries(quorin_netsnmp INTERFACE ${NETSNMP_AGENT_LIBRARY} ${NETSNMP_LIBRARY})
add_library(quorin_netsnmp_mibs INTERFACE)
target_link_libraries(quorin_netsnmp_mibs INTERFACE ${NETSNMP_MIBS_LIBRARY} quorin_netsnmp)
