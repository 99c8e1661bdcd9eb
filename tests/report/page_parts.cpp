// Copies the page's data from standard input into the page, as it is built into the tool.
#include "ReportPage.h"

#include <iostream>

int main() {
    std::ios::sync_with_stdio(false);
    std::cout << NimaPost::ReportPageHead() << std::cin.rdbuf() << NimaPost::ReportPageTail();
    return std::cout.good() ? 0 : 1;
}
