# cmake -DFOLDER=DIR -DOUTPUT=FILE -P embed.cmake: the files of a page below DIR as byte arrays in a C++ source.
file(GLOB_RECURSE names RELATIVE "${FOLDER}" "${FOLDER}/*.html" "${FOLDER}/*.js" "${FOLDER}/*.css" "${FOLDER}/*.svg"
     "${FOLDER}/*.png" "${FOLDER}/*.ico" "${FOLDER}/*.webmanifest")
list(FILTER names EXCLUDE REGEX "(^|/)(\\.|node_modules/|tests?/)|\\.(test|config)\\.js$")
list(SORT names)
set(arrays "")
set(rows "")
set(count 0)
foreach(name IN LISTS names)
  file(READ "${FOLDER}/${name}" hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(LENGTH "${hex}" size)
  math(EXPR size "${size} / 2")
  string(APPEND arrays "const unsigned char cFile${count}[] = {${bytes}0};\n")
  string(APPEND rows "    {\"${name}\", cFile${count}, ${size}},\n")
  math(EXPR count "${count} + 1")
endforeach()
file(WRITE "${OUTPUT}.new" "// Made by server/embed.cmake.
#include \"server/pagefiles.h\"

namespace server
{
namespace
{
${arrays}}  // namespace

const tPageFile cPageFiles[] = {
${rows}    {nullptr, nullptr, 0}};
const std::size_t cPageFileCount = ${count};
}  // namespace server
")
file(RENAME "${OUTPUT}.new" "${OUTPUT}")
