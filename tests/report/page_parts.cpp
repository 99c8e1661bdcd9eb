// Copies the page's data from standard input into the page, as it is built into the tool.
#include "ReportPage.h"

#include <iostream>

int main() {
    std::ios::sync_with_stdio(false);
    std::cout << NimaPost::PageHead() << std::cin.rdbuf() << NimaPost::PageTail();
    return std::cout.good() ? 0 : 1;
}
