// The Vek entity runtime: everything in one include.
#pragma once

#include "Vek/AllocTrack.h"
#include "Vek/Basics.h"
#include "Vek/Collection.h"
#include "Vek/Entity.h"
#include "Vek/Exception.h"
#include "Vek/Format.h"
#include "Vek/GenericIf.h"
#include "Vek/HashMap.h"
#include "Vek/HashMix.h"
#include "Vek/Module.h"
#include "Vek/Ptr.h"
#include "Vek/System.h"
#include "Vek/TypeDef.h"
#include "Vek/TypeDescriptor.h"
#include "Vek/TypeHandle.h"
