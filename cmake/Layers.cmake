# Helpers for the layer targets. Each folder is a static library whose public
# include directory is only its own folder, so a file can include only the
# headers of the layers its target links: a wrong include fails to build.

# tarvo_layer(NAME DIR dir [SOURCES file...] [LINK target...] [LINK_ONLY target...])
# Sources are listed one by one (relative to the calling folder); a layer
# without sources is a header-only interface library.
function(tarvo_layer name)
  cmake_parse_arguments(L "" "DIR" "SOURCES;LINK;LINK_ONLY" ${ARGN})
  if(L_SOURCES)
    add_library(${name} STATIC ${L_SOURCES})
    target_include_directories(${name} PUBLIC ${L_DIR})
    target_link_libraries(${name} PUBLIC ${L_LINK})
    foreach(lo ${L_LINK_ONLY})
      target_link_libraries(${name} PUBLIC $<LINK_ONLY:${lo}>)
    endforeach()
    tarvo_avx2_sources(${L_SOURCES})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${L_DIR})
    target_link_libraries(${name} INTERFACE ${L_LINK})
  endif()
endfunction()

# Files named *_avx2.cpp hold the eight-lane loops. MinGW's GCC does not
# align the stack to 32 bytes, so there their spilled AVX registers must be
# moved with unaligned instructions.
function(tarvo_avx2_sources)
  if(NOT MINGW)
    return()
  endif()
  foreach(src ${ARGN})
    if(src MATCHES "_avx2\\.cpp$")
      set_source_files_properties(${src} PROPERTIES COMPILE_OPTIONS "-Wa,-muse-unaligned-vector-move")
    endif()
  endforeach()
endfunction()
