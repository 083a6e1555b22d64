#pragma once

// Everything the library offers, in one include.

#include "qxexport.h"
#include "streams/qxfstream.h"
#include "streams/qxsstream.h"
#include "streams/qxstdstream.h"
#include "streams/qxstream.h"
#include "system/qxhost.h"
#include "system/qxmemory.h"
#include "system/qxsync.h"
#include "system/qxthread.h"
#include "system/qxtime.h"
#include "system/qxversion.h"
