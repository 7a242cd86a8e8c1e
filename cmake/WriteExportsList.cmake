# Writes OUTPUT, the list of symbols the macOS library exports (the linker's
# -exported_symbols_list): the C functions HEADER (kelvane.h) declares and the symbols of
# namespace kelvane that INPUTS (the library's objects and archives) give default visibility.
# Everything else stays inside: the C++ library's, spdlog's, fmt's and ZeroMQ's symbols, and
# what the code hides. The list names only visible symbols, because the linker warns about each
# hidden one it names (inline members a wildcard would match).
file(STRINGS ${HEADER} functions REGEX "^KELVANE_API ")
list(TRANSFORM functions REPLACE "^KELVANE_API [^(]*[ *]([A-Za-z_0-9]+)\\(.*" "_\\1")
execute_process(COMMAND ${NM} -m --defined-only -g ${INPUTS} OUTPUT_VARIABLE symbols
                COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "[^\n]*\n" symbols "${symbols}")
set(exports ${functions})
foreach(symbol ${symbols})
  if(NOT symbol MATCHES "private external" AND symbol MATCHES " (__Z(T[ISV]|Thn?[0-9]+_)?NK?7kelvane[^\n]*)")
    list(APPEND exports ${CMAKE_MATCH_1})
  endif()
endforeach()
list(REMOVE_DUPLICATES exports)
list(SORT exports)
list(JOIN exports "\n" exports)
file(WRITE ${OUTPUT} "${exports}\n")
