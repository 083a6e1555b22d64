#pragma once

// Everything the library offers, in one include.

#include "qxexport.h"
#include "files/qxdirectory.h"
#include "files/qxfile.h"
#include "files/qxfilesystem.h"
#include "streams/qxcompress.h"
#include "streams/qxfstream.h"
#include "streams/qxgzstream.h"
#include "streams/qxsstream.h"
#include "streams/qxstdstream.h"
#include "streams/qxstream.h"
#include "streams/qxstreammngr.h"
#include "streams/qxwrapperstream.h"
#include "system/qxhost.h"
#include "system/qxmachine.h"
#include "system/qxmemory.h"
#include "system/qxsync.h"
#include "system/qxthread.h"
#include "system/qxtime.h"
#include "system/qxversion.h"
