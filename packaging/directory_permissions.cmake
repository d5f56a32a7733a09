# Run by CPack between staging the installed files and packing them: the
# directories get mode 0755 whatever the umask of the machine that made
# them. The files already have theirs from the install rules.
file(GLOB_RECURSE entries LIST_DIRECTORIES true "${CPACK_TEMPORARY_DIRECTORY}/*")
foreach(entry ${entries})
  if(IS_DIRECTORY "${entry}" AND NOT IS_SYMLINK "${entry}")
    file(CHMOD "${entry}" DIRECTORY_PERMISSIONS
         OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
  endif()
endforeach()
