// A temporary directory that is the product's work path, with a zns.ini.
#pragma once

#include "hook.h"
#include "tempdir.h"

struct Sandbox : TempDir
{
    explicit Sandbox(const std::string& strZnsIni = "")
    {
        WriteAll(znsIni, strZnsIni);
        SetEnvironmentVariableW(L"ZN_WORK_PATH", root.c_str());
    }
    const fs::path znsIni = root / "zns.ini";
};
