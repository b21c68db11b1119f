// A temporary directory that is the product's work path, with a zns.ini; and the code page of the thread.
#pragma once

#include "hook.h"
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

// Lets it be another one than the machine's, with what Windows refuses for UTF-8.
inline Hooks ThreadCodePage(UINT nCodePage)
{
    const auto actual = [nCodePage](UINT n) { return n == CP_THREAD_ACP ? nCodePage : n; };
    return {Hook(GetCPInfoExW, [=](UINT n, auto... args) { return GetCPInfoExW(actual(n), args...); }),
            Hook(MultiByteToWideChar,
                 [=](UINT n, auto... args) { return MultiByteToWideChar(actual(n), args...); }),
            Hook(WideCharToMultiByte, [=](UINT n, DWORD f, auto... args) {
                const bool fRefused = actual(n) == CP_UTF8 && (f & WC_NO_BEST_FIT_CHARS) != 0;
                return fRefused ? 0 : WideCharToMultiByte(actual(n), f, args...);
            })};
}
