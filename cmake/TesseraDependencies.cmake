# The libraries that the product links. tools, tests and benchmarks find their own beside this.

find_package(Threads REQUIRED)
find_package(Boost 1.81 CONFIG REQUIRED COMPONENTS json)
find_package(CURL 7.88 REQUIRED)
find_package(OpenSSL 3.0 REQUIRED)
find_package(ICU 72 REQUIRED COMPONENTS uc i18n)
