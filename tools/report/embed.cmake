# Puts the page together and writes it as one C++ source: cmake -DSOURCES=folder -DOUTPUT=file -P embed.cmake
cmake_minimum_required(VERSION 3.25)

file(READ "${SOURCES}/page.html" page)
file(READ "${SOURCES}/page.css" css)
# page.js starts the page and comes last.
set(script "")
foreach(name model summary records timeline page)
    file(READ "${SOURCES}/${name}.js" part)
    string(APPEND script "${part}")
endforeach()
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
math(EXPR behind "${at} + ${length}")
string(SUBSTRING "${page}" 0 ${at} head)
string(SUBSTRING "${page}" ${behind} -1 tail)
foreach(part head tail)
    string(FIND "${${part}}" ")nimaPage\"" at)
    if(NOT at EQUAL -1)
        message(FATAL_ERROR "the page holds the end of its own string literal")
    endif()
endforeach()

file(WRITE "${OUTPUT}" "// Written by tools/report/embed.cmake.
#include \"ReportPage.h\"

namespace NimaPost {

std::string_view PageHead() { return R\"nimaPage(${head})nimaPage\"; }

std::string_view PageTail() { return R\"nimaPage(${tail})nimaPage\"; }

} // namespace NimaPost
")
