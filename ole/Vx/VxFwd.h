// VxFwd.h - Forward declarations of every public type.
#pragma once

#include <Vx/VxExport.h>

// The class roots and the platform services.
class iVirtual;
class iObject;
class iReclaimable;
class Reclaimable;
class iPlatformServices;
class iMemoryAllocator;
class iReclaimRegistry;
class iSystemUtils;
class iFileSystem;
class iFile;
class iThreading;
class iLock;
class iSystemInfo;
class iShell;
class iSettings;
struct SimpleUUID;

// Strings, containers and shared state in the global namespace.
template <class T> class StdAllocator;
template <class Ch> class LightweightString;
template <class T> class LightweightVector;
template <class Result, class Argument> class iCallbackBase;
class CriticalSection;
class VxIniFile;

namespace Shutdown {
// Exported, since the type information of a callback is only as visible as its argument types.
enum VX_API eExitType : int;
class FunctionCallback;
struct CallbackItem;
class CallbackItemList;
} // namespace Shutdown

namespace Vx {

struct DtorTraits;
struct InternalRefCountTraits;
struct ExternalRefCountTraits;
class InternalRefCount;

/// Defined in VxPtr.h; its default arguments are declared only here.
template <class T, class Destroy = DtorTraits, class Count = InternalRefCountTraits> class Ptr;

template <class Ch> class IsMatchingChar;
template <class String> class SplitOutputBuilder;
template <class String> struct StringToVec;

class AttribValuePair;
class Application;
class NamedObjectsNamespace;
class UUID;

namespace Exception {
class Base;
class RuntimeError;
class LogicError;
} // namespace Exception

namespace PooledObjectDebug {
class LoggingTraitsBase;
}

enum class FrameRate : int;

namespace Image {
class FormatUID;
enum class Format : int;
enum class eLayout : int;
enum class Orientation : int;
enum class ScanMode : int;
enum class AspectRatio : int;
enum class Polarity : int;
enum class Colorimetry : int;
enum class GamutScaling : int;

namespace Core {
class Interface;
class Data;
} // namespace Core
namespace BufferFormat {
class Interface;
class Data;
} // namespace BufferFormat
namespace Video {
class Interface;
class Data;
} // namespace Video
namespace VideoSample {
class Interface;
class Data;
} // namespace VideoSample
namespace VideoSequence {
class Interface;
class Data;
} // namespace VideoSequence
} // namespace Image

} // namespace Vx
