# Compiler and linker flags of everything built here: warnings, hardening, sanitizers.

function(analytics_flags target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                         $<$<BOOL:${ANALYTICS_WERROR}>:-Werror>
                         # Assertions name a source by its path from the root of the repository.
                         -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=
                         -fstack-protector-strong -ffunction-sections -fdata-sections)
  if(ANALYTICS_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${ANALYTICS_SANITIZE} -fno-omit-frame-pointer
                           # Instrumented code misleads this one inside the standard library's regex.
                           $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    if(ANALYTICS_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
    target_link_options(${target} PRIVATE -fsanitize=${ANALYTICS_SANITIZE})
    target_compile_definitions(${target} PRIVATE ANALYTICS_SANITIZED)
  elseif(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
    target_compile_definitions(${target} PRIVATE _FORTIFY_SOURCE=2)
  endif()
  if(NOT APPLE)
    target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--gc-sections)
  endif()
endfunction()
