// What the sheet window tests read from list views and combo boxes beyond
// the toolkit's probe (tests/toolkit/NativeProbe.h), in plain types; this
// file is compiled by wineg++, the tests by g++.
#pragma once

#include <string>

int probeListRows(void* list);
int probeListColumns(void* list);
std::string probeListHeader(void* list, int column);
std::string probeListCell(void* list, int row, int column);
// The first selected row, or -1.
int probeListSelected(void* list);
bool probeListRowSelected(void* list, int row);
int probeComboSelection(void* combo);
// Chooses an item as a user does: the selection changes and the parent
// hears CBN_SELCHANGE.
void probeComboChoose(void* combo, int index);
// Gives the top-level window a new outer size, as a user's drag does.
void probeResize(void* window, int width, int height);
