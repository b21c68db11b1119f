// Turns what was found and what follows from it into lines. Nothing else knows the sentences and how a path
// is quoted, and nothing reads what was printed.
#pragma once

#include <cstdint>
#include <string>

#include "znminventory.h"
#include "znmsurvey.h"

// Why nothing can be said of the trees.
enum class ZN_TROUBLE
{
    NONE,
    UNKNOWN_NAME,   // zns.ini has no such queue manager
    NO_LOG_PATH,    // or none that a move could leave
    RECORD,         // it cannot be read, is damaged, or is of another move
    OTHER_SPELLING, // a new directory is the present one by another path
    OTHER_PLACES,   // the files name neither the old nor the new places
    NO_PREFIX,      // the old data directory is none that zns.ini could name
    OLD_QM_INI,     // the qm.ini of the old data tree names another log
    NOT_READ,       // something of a tree that counts
    CHANGED,        // while it was looked at
};

// What is found after a move.
struct ZNFound
{
    explicit ZNFound(const ZNCheckWords& words_) : words(words_), survey(words_) {}

    const ZNCheckWords& words;
    CZNSurvey survey;
    ZNFacts facts;
    ZNPair aPairs[ZN_TREES];
    ZN_TROUBLE eTrouble = ZN_TROUBLE::NONE;
    std::wstring strTrouble; // its path, and what the system says
    bool fNoLogPath = false; // the qm.ini that counts has none, or is not there
};

// Prints what there is, the state, whether the queue manager may be started, and the steps.
void ZNPrintAdvice(const ZNFound& found, const ZNVerdict& verdict);

// Prints the next look with the words that are known; its places as old ones if strOldData is not empty.
void ZNPrintLookAfter(const ZNCheckWords& words, const std::wstring& strOldData,
                      const std::wstring& strOldLog);

// The first finding, and how many more there are.
std::wstring ZNFormatFirst(const CZNFindings& findings);

// What a message of the command says, in the user's language.
std::wstring ZNMessageText(uint32_t nMessageID);

// A path for cmd.exe, in quotation marks.
std::wstring ZNQuoted(const std::wstring& strPath);

// The path without its ending, in whatever letter case; empty if it has another one.
std::wstring ZNWithout(const std::wstring& strPath, const std::wstring& strEnding);
