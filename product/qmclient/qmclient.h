// What the product's own programs have in common: a session of the common services, a queue manager looked
// up, lines on the console.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "runobjects.h"
#include "tovxcs2.h"

// The common services for as long as this object lives.
class CommonServices
{
  public:
    CommonServices();
    ~CommonServices();
    CommonServices(const CommonServices&) = delete;
    CommonServices& operator=(const CommonServices&) = delete;

    // 0, or the code with which the common services did not come up.
    int32_t Result() const { return m_nResult; }

    // Tells the user, on standard error, why they did not, and what to do about it.
    void ReportFailure() const;
    const XCS_CONNECTION* Connection() const { return &m_connection; }

  private:
    XCS_CONNECTION m_connection = {};
    int32_t m_nResult;
};

struct QueueManager
{
    std::wstring strName;
    std::wstring strDataDirectory;
    RunObjectNames runObjects;
};

// Finds a queue manager and its installation in the product's configuration. Nothing when one is unknown or
// its configuration cannot be used.
std::optional<QueueManager> FindQueueManager(const std::wstring& strName);

// Name of the primary installation; empty when there is none.
std::string PrimaryInstallationName();

// A line in the console's OEM code page.
void PrintLine(FILE* pStream, std::wstring_view strText);

// Nothing is loaded from the current directory from here on. For the first line of a program.
void RestrictLibrarySearch();
