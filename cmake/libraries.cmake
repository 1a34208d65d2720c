# The shared and the static library of an interface, and how all their objects are compiled.
set(hardening
  $<$<BOOL:${RAST_TARGET_X86_64}>:-fcf-protection=full>
  $<$<BOOL:${RAST_TARGET_AARCH64}>:-mbranch-protection=standard>)

# Makes the static library <name>_static and, where the target has shared libraries, <name> of the
# object libraries that follow. include/<interface>.h declares what <interface>.map exports.
function(add_both_libraries name interface)
  get_property(has_shared GLOBAL PROPERTY TARGET_SUPPORTS_SHARED_LIBS)
  foreach(library IN LISTS ARGN)
    target_compile_options(${library} PRIVATE -fvisibility=hidden ${hardening})
    set_target_properties(${library} PROPERTIES POSITION_INDEPENDENT_CODE ${has_shared})
    list(APPEND objects $<TARGET_OBJECTS:${library}>)
  endforeach()

  # Without start files: the C library's crti.o lacks the CET and BTI marks and would take them from
  # the whole library, and nothing runs at load or unload.
  if(has_shared)
    set(map ${CMAKE_CURRENT_SOURCE_DIR}/${interface}.map)
    add_library(${name} SHARED ${objects})
    set_target_properties(${name} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} LINK_DEPENDS ${map})
    target_link_options(${name} PRIVATE
      -nostartfiles ${hardening}
      LINKER:--version-script=${map}
      LINKER:-z,relro,-z,now,-z,noexecstack,-z,separate-code
      $<$<NOT:$<BOOL:${RAST_SANITIZED}>>:LINKER:-z,defs>)
    set(libraries ${name})
  endif()
  add_library(${name}_static STATIC ${objects})
  set_target_properties(${name}_static PROPERTIES OUTPUT_NAME ${name})
  list(APPEND libraries ${name}_static)

  foreach(library IN LISTS libraries)
    target_include_directories(${library} INTERFACE ${PROJECT_SOURCE_DIR}/include)
    add_library(rast::${library} ALIAS ${library})
  endforeach()
  install(TARGETS ${libraries}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES ${PROJECT_SOURCE_DIR}/include/${interface}.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
endfunction()
