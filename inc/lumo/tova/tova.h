// The whole portability layer except for the web: C99 and C++.
//
// Each header below can be included by itself and says what its part is for. tova-web.h stays out, because it is for
// the few hosts that make requests of their own.
#pragma once

#include "lumo/tova/base.h"
#include "lumo/tova/clock.h"
#include "lumo/tova/directory.h"
#include "lumo/tova/event.h"
#include "lumo/tova/file.h"
#include "lumo/tova/global_event.h"
#include "lumo/tova/mutex.h"
#include "lumo/tova/runtime.h"
#include "lumo/tova/security.h"
#include "lumo/tova/semaphore.h"
#include "lumo/tova/text.h"
#include "lumo/tova/thread.h"
