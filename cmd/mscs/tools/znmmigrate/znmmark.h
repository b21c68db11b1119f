// Marks: named kernel objects of a running move. They vanish with its process, even if it is killed.
#pragma once

#include <string>

#include "owner.h"
#include "znmidentity.h"

class CZNMark
{
  public:
    // Makes the object, or takes over one that is only looked at. False only if a move on this machine owns
    // it or somebody keeps this one from it: where it cannot be made for another reason, there is none to
    // refuse a move. The thread that calls this owns it.
    bool Set(const std::wstring& strName);

    // Whether a process of this machine has the object, as a move or to look. It also counts as there if that
    // cannot be told.
    static bool IsSet(const std::wstring& strName);

  private:
    KernelHandle m_mutex;
};

// The mark of a move of a queue manager. strPlace: CZNMQueueMgr::GetPlace.
std::wstring ZNMoveMark(const std::string& strPlace);

// The mark of a move into a directory.
std::wstring ZNDestinationMark(const CZNIdentity& directory);

// What a move is doing. A phase has its mark as long as it lasts, for who watches the move.
enum class ZN_PHASE
{
    LOOKING, // has no mark of its own
    ENDING,
    CREATING,
    COPYING_DATA,
    DATA_RIGHTS,
    COPYING_LOG,
    LOG_RIGHTS,
    CONFIGURING,
    DELETING,
};

// The mark of a phase, beside a mark of the move: that of its destination for data as soon as it has one.
std::wstring ZNPhaseMark(const std::wstring& strMark, ZN_PHASE ePhase);
