// Everything tests share: sinks, a counting host, signal generators and the
// block runner. Tests include this one header.
#pragma once

#include "support/BlockRunner.h"
#include "support/Signals.h"
#include "support/Sinks.h"
#include "support/TestHost.h"
#include "support/TestTools.h"
