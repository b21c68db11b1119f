// Numbers of the texts in the string table, for the C++ sources and the resource scripts alike: hence macros.
// What each text tells the administrator, and when, is in docs/messages.md.
#pragma once

#define IDS_USAGE 20
#define IDS_SERVICE_NOT_REACHED 30
#define IDS_SERVICE_INACTIVE 31
#define IDS_QM_NOT_FOUND 32
#define IDS_QM_STILL_ACTIVE 33
#define IDS_SERVICE_NOT_RESTARTED 34
#define IDS_SERVICE_NOT_STOPPED 35
#define IDS_REGISTRY_NOT_READ 36
#define IDS_CREATE_FAILED 37
#define IDS_COPY_FAILED 38
#define IDS_UPDATE_FAILED 39
#define IDS_DELETE_FAILED 40
#define IDS_TITLE 41
#define IDS_SAME_DESTINATION 42
#define IDS_SERVICE_NOT_REFRESHED 43
#define IDS_MFC_FAILED 44
#define IDS_COM_FAILED 45
#define IDS_COMMON_SERVICES_FAILED 46
#define IDS_QM_MULTI_INSTANCE 47
