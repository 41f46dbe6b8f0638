# cmake -DDIRECTORY=web -DOUTPUT=web_files_table.cc -P embed.cmake: the files of the directory as a table in C++.
set(types html "text/html; charset=utf-8" css "text/css; charset=utf-8" js "text/javascript; charset=utf-8"
          svg "image/svg+xml" png "image/png" ico "image/vnd.microsoft.icon" txt "text/plain; charset=utf-8"
          webmanifest "application/manifest+json")
file(GLOB files ${DIRECTORY}/*.*)
set(count 0)
foreach(file ${files})
  get_filename_component(name ${file} NAME)
  get_filename_component(ending ${file} LAST_EXT)
  string(REGEX REPLACE "^\\." "" ending "${ending}")
  list(FIND types "${ending}" at)
  if(at LESS 0)
    continue()
  endif()
  math(EXPR at "${at} + 1")
  list(GET types ${at} type)
  file(READ ${file} bytes HEX)
  string(REGEX REPLACE "(................................)" "\\1\n" bytes "${bytes}")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
  string(APPEND arrays "static constexpr char file_${count}[] = {\n${bytes}'\\0'};\n")
  string(APPEND rows "    {\"${name}\", \"${type}\", {file_${count}, sizeof file_${count} - 1}},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE ${OUTPUT} "// Made by embed.cmake.
#include \"web/web_files.h\"

namespace faxtray {

${arrays}
const web_file_t web_files[] = {
${rows}    {nullptr, nullptr, {}}};
const size_t web_file_count = ${count};

}  // namespace faxtray
")
