// The host's session interface; the installed copy is <signing/session.h>.
#ifndef SIGNING_PLUGIN_SESSION_H
#define SIGNING_PLUGIN_SESSION_H

#include <signing/session.h>

#endif
