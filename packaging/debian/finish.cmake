# Run by cpack between installing and packing, for what Debian wants and a plain installation does not:
# compressed manual pages, and archives that hold nothing but code.
file(GLOB_RECURSE pages LIST_DIRECTORIES false ${CPACK_TEMPORARY_DIRECTORY}/*.[1-8])
list(FILTER pages INCLUDE REGEX "/share/man/man[1-8]/")
if(pages)
  execute_process(COMMAND gzip --best --no-name ${pages} COMMAND_ERROR_IS_FATAL ANY)
endif()

file(GLOB_RECURSE archives LIST_DIRECTORIES false ${CPACK_TEMPORARY_DIRECTORY}/*.a)
if(archives)
  execute_process(COMMAND strip --strip-debug --remove-section=.comment --enable-deterministic-archives
                          ${archives} COMMAND_ERROR_IS_FATAL ANY)
endif()
