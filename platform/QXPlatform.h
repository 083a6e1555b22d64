#pragma once

// Everything the library offers, in one include.

#include "binary/qxbinary.h"
#include "binary/qxbinaryio.h"
#include "binary/qxhalffloat.h"
#include "qxexport.h"
#include "streams/qxfstream.h"
#include "streams/qxsstream.h"
#include "streams/qxstdstream.h"
#include "streams/qxstream.h"
#include "system/qxmemory.h"
