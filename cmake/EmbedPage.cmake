# Puts a page together and writes it as one C++ source that defines what NAME.h declares:
#     cmake -DHTML=file -DCSS=file -DSCRIPT=file -DNAME=name -DOUTPUT=file -P EmbedPage.cmake
cmake_minimum_required(VERSION 3.25)

file(READ "${HTML}" page)
file(READ "${CSS}" css)
file(READ "${SCRIPT}" script)
foreach(forbidden "</script" "</style" "<!--")
    foreach(part css script)
        string(FIND "${${part}}" "${forbidden}" at)
        if(NOT at EQUAL -1)
            message(FATAL_ERROR "${forbidden} would end the page's ${part} early")
        endif()
    endforeach()
endforeach()
string(REPLACE "@PAGE_CSS@\n" "${css}" page "${page}")
string(REPLACE "@PAGE_JS@\n" "${script}" page "${page}")

set(mark "@PAGE_DATA@")
string(FIND "${page}" "${mark}" at)
string(LENGTH "${mark}" length)
math(EXPR after "${at} + ${length}")
string(SUBSTRING "${page}" 0 ${at} head)
string(SUBSTRING "${page}" ${after} -1 tail)
foreach(part head tail)
    string(FIND "${${part}}" ")nimaPage\"" at)
    if(NOT at EQUAL -1)
        message(FATAL_ERROR "the page holds the end of its own string literal")
    endif()
endforeach()

file(WRITE "${OUTPUT}" "// Written by cmake/EmbedPage.cmake.
#include \"${NAME}.h\"

namespace NimaPost {

std::string_view ${NAME}Head() { return R\"nimaPage(${head})nimaPage\"; }

std::string_view ${NAME}Tail() { return R\"nimaPage(${tail})nimaPage\"; }

} // namespace NimaPost
")
