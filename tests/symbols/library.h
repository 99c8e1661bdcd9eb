#pragma once

extern "C" [[gnu::visibility("default")]] int ScanPage(int lines);
