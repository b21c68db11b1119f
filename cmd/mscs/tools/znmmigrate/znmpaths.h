// Which paths the move can work with. What is refused here would otherwise end in data that no configuration
// names, or that is deleted as part of an old tree.
#pragma once

#include <initializer_list>

#include "afxwin.h"

// Whether a path from the product's configuration can be an old tree: absolute, and below the root of its
// drive or share. Of anything else the current directory or a whole drive would be copied and deleted.
bool IsTreePath(const CString& strPath);

// Whether a new tree can be made at a path and be found again: absolute, short enough for the system to
// create it, and without a character that the thread's code page, in which the configuration names it, lacks.
bool CanBeDestination(const CString& strPath);

// Whether strDir is one of the trees or lies in one, however they are spelled. False also if that cannot be
// told.
bool IsInsideTree(const CString& strDir, std::initializer_list<CString> trees);

// Whether a path below strDir, counted from there, has more than nLongest characters.
bool HasLongerPath(const CString& strDir, int nLongest);
