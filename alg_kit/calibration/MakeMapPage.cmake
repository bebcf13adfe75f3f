# cmake -DPAGE=FOLDER -DOUTPUT=FILE -P MakeMapPage.cmake
# Writes OUTPUT, a C++ source with the page of the rig map: one file, whose policy lets run exactly
# the script and the style that are in it, by their SHA-256.
cmake_minimum_required(VERSION 3.25)

# The hash as the policy wants it: base64, of which CMake has none. Three hexadecimal digits are two
# of its characters.
function(base64_hash text variable)
  string(SHA256 digits "${text}")
  string(APPEND digits "00")
  set(letters "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")
  set(result "")
  foreach(at RANGE 0 63 3)
    string(SUBSTRING "${digits}" ${at} 3 three)
    math(EXPR high "0x${three} >> 6")
    math(EXPR low "0x${three} & 63")
    string(SUBSTRING "${letters}" ${high} 1 first)
    string(SUBSTRING "${letters}" ${low} 1 second)
    string(APPEND result "${first}${second}")
  endforeach()
  # 32 bytes fill 43 characters; the last of the 44 stands for nothing.
  string(SUBSTRING "${result}" 0 43 result)
  set(${variable} "${result}=" PARENT_SCOPE)
endfunction()

file(READ "${PAGE}/page.html" page)
file(READ "${PAGE}/style.css" style)
file(READ "${PAGE}/main.js" script)
base64_hash("${style}" style_hash)
base64_hash("${script}" script_hash)
string(REPLACE "@STYLE_HASH@" "${style_hash}" page "${page}")
string(REPLACE "@SCRIPT_HASH@" "${script_hash}" page "${page}")
string(REPLACE "@STYLE@" "${style}" page "${page}")
string(REPLACE "@SCRIPT@" "${script}" page "${page}")
file(WRITE "${OUTPUT}.html" "${page}")
file(SIZE "${OUTPUT}.html" size)
file(READ "${OUTPUT}.html" bytes HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${bytes}")
string(REPEAT "0x..," 20 line)
string(REGEX REPLACE "(${line})" "\\1\n" bytes "${bytes}")
file(WRITE "${OUTPUT}" "// Made by alg_kit/calibration/MakeMapPage.cmake.
#include <alg_kit/calibration/RigMapPage.h>

namespace calibration {
namespace {

constexpr unsigned char kPage[] = {
${bytes}0};

}  // namespace

std::string_view rigMapPage() {
  return {reinterpret_cast<const char*>(kPage), ${size}};
}

}  // namespace calibration
")
