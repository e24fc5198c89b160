# What every target of the tree is compiled with. Hosts inherit none of it but the language level.

if(PROJECT_IS_TOP_LEVEL)
  set(CMAKE_CXX_EXTENSIONS OFF)
  set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
  if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Debug, Release, RelWithDebInfo" FORCE)
  endif()
endif()

option(TESSERA_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
set(TESSERA_SANITIZE "" CACHE STRING "Sanitizers for everything in the tree, as in -fsanitize=")

# One function for our own targets: warnings, sanitizers, hidden details.
function(tessera_target_options target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # g++ 12 takes Asio's allocation of coroutine frames for a mismatch once it is inlined.
    target_compile_options(${target} PRIVATE -Wno-mismatched-new-delete)
  endif()
  if(TESSERA_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
endfunction()

if(TESSERA_SANITIZE)
  add_compile_options(-fsanitize=${TESSERA_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${TESSERA_SANITIZE})
  # Without these, recycled coroutine frames hide the use of dead ones.
  add_compile_definitions(BOOST_ASIO_DISABLE_AWAITABLE_FRAME_RECYCLING BOOST_ASIO_DISABLE_SMALL_BLOCK_RECYCLING)
endif()
