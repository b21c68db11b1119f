// A temporary directory that is the product's work path, with a zns.ini.
#pragma once

#include "tempdir.h"

class Sandbox : public TempDir
{
  public:
    explicit Sandbox(const std::string& strZnsIni = "")
    {
        Write("zns.ini", strZnsIni);
        SetEnvironmentVariableW(L"ZN_WORK_PATH", root.c_str());
    }
    std::string Path(const std::string& strName) const { return (root / strName).make_preferred().string(); }
    void Write(const std::string& strName, const std::string& strContent) const
    {
        WriteAll(root / strName, strContent);
    }
    std::string Read(const std::string& strName) const { return ReadAll(root / strName); }
};
