// The command-line parser. It keeps nothing itself: what it finds goes into the application object.
#pragma once

#include "afxwin.h"

class CZNCmdLineInfo : public CCommandLineInfo
{
  public:
    CZNCmdLineInfo();

    // Takes one word; see CCommandLineInfo. Errors never stop the walk and print nothing: they clear the
    // application object's valid flag and are traced.
    void ParseParam(const wchar_t* pszParam, BOOL fFlag, BOOL fLast) override;
};
