# The libraries that the product links. tools, tests and benchmarks find their own beside this.

find_package(Threads REQUIRED)
find_package(Boost 1.81 CONFIG REQUIRED COMPONENTS json)
find_package(CURL 7.88 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n)
find_package(SQLite3 3.40 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(Sodium REQUIRED IMPORTED_TARGET libsodium>=1.0.18)
# Headers alone: libsecret is looked for when the program runs, and may be absent.
pkg_check_modules(LibSecret REQUIRED libsecret-1)
# Event loops of hosts, for the adapters.
if(TESSERA_QT)
  find_package(Qt6 6.2 QUIET COMPONENTS Core)
endif()
if(TESSERA_GLIB)
  pkg_check_modules(GLib QUIET IMPORTED_TARGET glib-2.0>=2.58)
endif()
