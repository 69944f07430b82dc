// Our own declarations of the public MI client API (the types, constants, handle layouts and
// function tables of <mi.h>, as Microsoft documents them) for builds without <mi.h>: Linux and
// MinGW-w64. Portable code includes "Platform/Mi.h" and calls the API by its inline wrapper names
// (MI_Application_NewSession, MI_Operation_GetInstance...). On Linux the bodies behind the function
// tables live in platform_mi (Platform/linux/Mi/); on Windows they are mi.dll's, which platform_mi
// binds at run time (Platform/windows/MiLoader.cpp). MI_Char is wchar_t: 16 bits on Windows, 32 on Linux.
#pragma once
// The struct tags and padding names (_MI_Instance, __padding1...) are those of <mi.h>.
// NOLINTBEGIN(bugprone-reserved-identifier)

#include <cstddef>

#define MI_CALL
#define MI_MAIN_CALL
#define MI_INLINE inline
#define MI_CONST const
#define MI_T(s) L##s

typedef unsigned char MI_Boolean;
typedef unsigned char MI_Uint8;
typedef signed char MI_Sint8;
typedef unsigned short MI_Uint16;
typedef signed short MI_Sint16;
typedef unsigned int MI_Uint32;
typedef signed int MI_Sint32;
typedef unsigned long long MI_Uint64;
typedef signed long long MI_Sint64;
typedef float MI_Real32;
typedef double MI_Real64;
typedef unsigned short MI_Char16;
typedef wchar_t MI_Char;

#define MI_TRUE ((MI_Boolean)1)
#define MI_FALSE ((MI_Boolean)0)

typedef enum _MI_Result
{
  MI_RESULT_OK = 0,
  MI_RESULT_FAILED = 1,
  MI_RESULT_ACCESS_DENIED = 2,
  MI_RESULT_INVALID_NAMESPACE = 3,
  MI_RESULT_INVALID_PARAMETER = 4,
  MI_RESULT_INVALID_CLASS = 5,
  MI_RESULT_NOT_FOUND = 6,
  MI_RESULT_NOT_SUPPORTED = 7,
  MI_RESULT_CLASS_HAS_CHILDREN = 8,
  MI_RESULT_CLASS_HAS_INSTANCES = 9,
  MI_RESULT_INVALID_SUPERCLASS = 10,
  MI_RESULT_ALREADY_EXISTS = 11,
  MI_RESULT_NO_SUCH_PROPERTY = 12,
  MI_RESULT_TYPE_MISMATCH = 13,
  MI_RESULT_QUERY_LANGUAGE_NOT_SUPPORTED = 14,
  MI_RESULT_INVALID_QUERY = 15,
  MI_RESULT_METHOD_NOT_AVAILABLE = 16,
  MI_RESULT_METHOD_NOT_FOUND = 17,
  MI_RESULT_NAMESPACE_NOT_EMPTY = 20,
  MI_RESULT_INVALID_ENUMERATION_CONTEXT = 21,
  MI_RESULT_INVALID_OPERATION_TIMEOUT = 22,
  MI_RESULT_PULL_HAS_BEEN_ABANDONED = 23,
  MI_RESULT_PULL_CANNOT_BE_ABANDONED = 24,
  MI_RESULT_FILTERED_ENUMERATION_NOT_SUPPORTED = 25,
  MI_RESULT_CONTINUATION_ON_ERROR_NOT_SUPPORTED = 26,
  MI_RESULT_SERVER_LIMITS_EXCEEDED = 27,
  MI_RESULT_SERVER_IS_SHUTTING_DOWN = 28
} MI_Result;

typedef enum _MI_Type
{
  MI_BOOLEAN = 0,
  MI_UINT8 = 1,
  MI_SINT8 = 2,
  MI_UINT16 = 3,
  MI_SINT16 = 4,
  MI_UINT32 = 5,
  MI_SINT32 = 6,
  MI_UINT64 = 7,
  MI_SINT64 = 8,
  MI_REAL32 = 9,
  MI_REAL64 = 10,
  MI_CHAR16 = 11,
  MI_DATETIME = 12,
  MI_STRING = 13,
  MI_REFERENCE = 14,
  MI_INSTANCE = 15,
  MI_BOOLEANA = 16,
  MI_UINT8A = 17,
  MI_SINT8A = 18,
  MI_UINT16A = 19,
  MI_SINT16A = 20,
  MI_UINT32A = 21,
  MI_SINT32A = 22,
  MI_UINT64A = 23,
  MI_SINT64A = 24,
  MI_REAL32A = 25,
  MI_REAL64A = 26,
  MI_CHAR16A = 27,
  MI_DATETIMEA = 28,
  MI_STRINGA = 29,
  MI_REFERENCEA = 30,
  MI_INSTANCEA = 31,
  MI_ARRAY = 16
} MI_Type;

// Flags of declarations, qualifiers and elements.
#define MI_FLAG_CLASS (1 << 0)
#define MI_FLAG_METHOD (1 << 1)
#define MI_FLAG_PROPERTY (1 << 2)
#define MI_FLAG_PARAMETER (1 << 3)
#define MI_FLAG_ASSOCIATION (1 << 4)
#define MI_FLAG_INDICATION (1 << 5)
#define MI_FLAG_REFERENCE (1 << 6)
#define MI_FLAG_ANY (1 | 2 | 4 | 8 | 16 | 32 | 64)
#define MI_FLAG_ENABLEOVERRIDE (1 << 7)
#define MI_FLAG_DISABLEOVERRIDE (1 << 8)
#define MI_FLAG_RESTRICTED (1 << 9)
#define MI_FLAG_TOSUBCLASS (1 << 10)
#define MI_FLAG_TRANSLATABLE (1 << 11)
#define MI_FLAG_KEY (1 << 12)
#define MI_FLAG_IN (1 << 13)
#define MI_FLAG_OUT (1 << 14)
#define MI_FLAG_REQUIRED (1 << 15)
#define MI_FLAG_STATIC (1 << 16)
#define MI_FLAG_ABSTRACT (1 << 17)
#define MI_FLAG_TERMINAL (1 << 18)
#define MI_FLAG_EXPENSIVE (1 << 19)
#define MI_FLAG_STREAM (1 << 20)
#define MI_FLAG_READONLY (1 << 21)
#define MI_FLAG_NOT_MODIFIED (1 << 25)
#define MI_FLAG_NULL (1 << 29)
#define MI_FLAG_BORROW (1 << 30)
#define MI_FLAG_ADOPT (1u << 31)

typedef enum _MI_CancellationReason
{
  MI_REASON_NONE = 0,
  MI_REASON_TIMEOUT = 1,
  MI_REASON_SHUTDOWN = 2,
  MI_REASON_SERVICESTOP = 3
} MI_CancellationReason;

// Date-times: a point in time with its offset from UTC in minutes, or an interval.
typedef struct _MI_Timestamp
{
  MI_Uint32 year;
  MI_Uint32 month;
  MI_Uint32 day;
  MI_Uint32 hour;
  MI_Uint32 minute;
  MI_Uint32 second;
  MI_Uint32 microseconds;
  MI_Sint32 utc;
} MI_Timestamp;

typedef struct _MI_Interval
{
  MI_Uint32 days;
  MI_Uint32 hours;
  MI_Uint32 minutes;
  MI_Uint32 seconds;
  MI_Uint32 microseconds;
  MI_Uint32 __padding1;
  MI_Uint32 __padding2;
  MI_Uint32 __padding3;
} MI_Interval;

typedef struct _MI_Datetime
{
  MI_Uint32 isTimestamp;
  union
  {
    MI_Timestamp timestamp;
    MI_Interval interval;
  } u;
} MI_Datetime;

struct _MI_Instance;
typedef struct _MI_Instance MI_Instance;

// Arrays: a pointer to the elements and their count.
typedef struct _MI_BooleanA { MI_Boolean* data; MI_Uint32 size; } MI_BooleanA;
typedef struct _MI_Uint8A { MI_Uint8* data; MI_Uint32 size; } MI_Uint8A;
typedef struct _MI_Sint8A { MI_Sint8* data; MI_Uint32 size; } MI_Sint8A;
typedef struct _MI_Uint16A { MI_Uint16* data; MI_Uint32 size; } MI_Uint16A;
typedef struct _MI_Sint16A { MI_Sint16* data; MI_Uint32 size; } MI_Sint16A;
typedef struct _MI_Uint32A { MI_Uint32* data; MI_Uint32 size; } MI_Uint32A;
typedef struct _MI_Sint32A { MI_Sint32* data; MI_Uint32 size; } MI_Sint32A;
typedef struct _MI_Uint64A { MI_Uint64* data; MI_Uint32 size; } MI_Uint64A;
typedef struct _MI_Sint64A { MI_Sint64* data; MI_Uint32 size; } MI_Sint64A;
typedef struct _MI_Real32A { MI_Real32* data; MI_Uint32 size; } MI_Real32A;
typedef struct _MI_Real64A { MI_Real64* data; MI_Uint32 size; } MI_Real64A;
typedef struct _MI_Char16A { MI_Char16* data; MI_Uint32 size; } MI_Char16A;
typedef struct _MI_DatetimeA { MI_Datetime* data; MI_Uint32 size; } MI_DatetimeA;
typedef struct _MI_StringA { MI_Char** data; MI_Uint32 size; } MI_StringA;
typedef struct _MI_ReferenceA { struct _MI_Instance** data; MI_Uint32 size; } MI_ReferenceA;
typedef struct _MI_InstanceA { struct _MI_Instance** data; MI_Uint32 size; } MI_InstanceA;
typedef struct _MI_Array { void* data; MI_Uint32 size; } MI_Array;

typedef union _MI_Value
{
  MI_Boolean boolean;
  MI_Uint8 uint8;
  MI_Sint8 sint8;
  MI_Uint16 uint16;
  MI_Sint16 sint16;
  MI_Uint32 uint32;
  MI_Sint32 sint32;
  MI_Uint64 uint64;
  MI_Sint64 sint64;
  MI_Real32 real32;
  MI_Real64 real64;
  MI_Char16 char16;
  MI_Datetime datetime;
  MI_Char* string;
  struct _MI_Instance* instance;
  struct _MI_Instance* reference;
  MI_BooleanA booleana;
  MI_Uint8A uint8a;
  MI_Sint8A sint8a;
  MI_Uint16A uint16a;
  MI_Sint16A sint16a;
  MI_Uint32A uint32a;
  MI_Sint32A sint32a;
  MI_Uint64A uint64a;
  MI_Sint64A sint64a;
  MI_Real32A real32a;
  MI_Real64A real64a;
  MI_Char16A char16a;
  MI_DatetimeA datetimea;
  MI_StringA stringa;
  MI_ReferenceA referencea;
  MI_InstanceA instancea;
  MI_Array array;
} MI_Value;

// Declarations. A qualifier's value points to its data in the layout of the matching MI_Value
// member (for MI_STRING: to an MI_Char*); null when the qualifier has no value.
typedef struct _MI_Qualifier
{
  MI_CONST MI_Char* name;
  MI_Uint32 type;
  MI_Uint32 flavor;
  MI_CONST void* value;
} MI_Qualifier;

typedef struct _MI_PropertyDecl
{
  MI_Uint32 flags;
  MI_Uint32 code;
  MI_CONST MI_Char* name;
  MI_Qualifier MI_CONST* MI_CONST* qualifiers;
  MI_Uint32 numQualifiers;
  MI_Uint32 type;
  MI_CONST MI_Char* className;
  MI_Uint32 subscript;
  MI_Uint32 offset;
  MI_CONST MI_Char* origin;
  MI_CONST MI_Char* propagator;
  MI_CONST void* value;
} MI_PropertyDecl;

struct _MI_MethodDecl;
typedef struct _MI_MethodDecl MI_MethodDecl;
struct _MI_SchemaDecl;
typedef struct _MI_SchemaDecl MI_SchemaDecl;
struct _MI_ProviderFT;
typedef struct _MI_ProviderFT MI_ProviderFT;
struct _MI_Class;
typedef struct _MI_Class MI_Class;

typedef struct _MI_ClassDecl
{
  MI_Uint32 flags;
  MI_Uint32 code;
  MI_CONST MI_Char* name;
  MI_Qualifier MI_CONST* MI_CONST* qualifiers;
  MI_Uint32 numQualifiers;
  MI_PropertyDecl MI_CONST* MI_CONST* properties;
  MI_Uint32 numProperties;
  MI_Uint32 size;
  MI_CONST MI_Char* superClass;
  struct _MI_ClassDecl MI_CONST* superClassDecl;
  MI_MethodDecl MI_CONST* MI_CONST* methods;
  MI_Uint32 numMethods;
  MI_SchemaDecl MI_CONST* schema;
  MI_CONST MI_ProviderFT* providerFT;
  MI_Class* owningClass;
} MI_ClassDecl;

// Instances.
typedef struct _MI_InstanceFT
{
  MI_Result(MI_CALL* Clone)(const MI_Instance* self, MI_Instance** newInstance);
  MI_Result(MI_CALL* Destruct)(MI_Instance* self);
  MI_Result(MI_CALL* Delete)(MI_Instance* self);
  MI_Result(MI_CALL* IsA)(const MI_Instance* self, const MI_ClassDecl* classDecl, MI_Boolean* flag);
  MI_Result(MI_CALL* GetClassName)(const MI_Instance* self, const MI_Char** className);
  MI_Result(MI_CALL* SetNameSpace)(MI_Instance* self, const MI_Char* nameSpace);
  MI_Result(MI_CALL* GetNameSpace)(const MI_Instance* self, const MI_Char** nameSpace);
  MI_Result(MI_CALL* GetElementCount)(const MI_Instance* self, MI_Uint32* count);
  MI_Result(MI_CALL* AddElement)(MI_Instance* self, const MI_Char* name, const MI_Value* value, MI_Type type,
                                 MI_Uint32 flags);
  MI_Result(MI_CALL* SetElement)(MI_Instance* self, const MI_Char* name, const MI_Value* value, MI_Type type,
                                 MI_Uint32 flags);
  MI_Result(MI_CALL* SetElementAt)(MI_Instance* self, MI_Uint32 index, const MI_Value* value, MI_Type type,
                                   MI_Uint32 flags);
  MI_Result(MI_CALL* GetElement)(const MI_Instance* self, const MI_Char* name, MI_Value* value, MI_Type* type,
                                 MI_Uint32* flags, MI_Uint32* index);
  MI_Result(MI_CALL* GetElementAt)(const MI_Instance* self, MI_Uint32 index, const MI_Char** name, MI_Value* value,
                                   MI_Type* type, MI_Uint32* flags);
  MI_Result(MI_CALL* ClearElement)(MI_Instance* self, const MI_Char* name);
  MI_Result(MI_CALL* ClearElementAt)(MI_Instance* self, MI_Uint32 index);
  MI_Result(MI_CALL* GetServerName)(const MI_Instance* self, const MI_Char** serverName);
  MI_Result(MI_CALL* SetServerName)(MI_Instance* self, const MI_Char* serverName);
  MI_Result(MI_CALL* GetClass)(const MI_Instance* self, MI_Class** instanceClass);
} MI_InstanceFT;

struct _MI_Instance
{
  const MI_InstanceFT* ft;
  const MI_ClassDecl* classDecl;
  const MI_Char* serverName;
  const MI_Char* nameSpace;
  ptrdiff_t reserved[4];
};

// Handles: two reserved words and the function table; a null table means "not open".
struct _MI_Application;
typedef struct _MI_Application MI_Application;
struct _MI_Session;
typedef struct _MI_Session MI_Session;
struct _MI_Operation;
typedef struct _MI_Operation MI_Operation;
struct _MI_DestinationOptions;
typedef struct _MI_DestinationOptions MI_DestinationOptions;
struct _MI_OperationOptions;
typedef struct _MI_OperationOptions MI_OperationOptions;
struct _MI_SubscriptionDeliveryOptions;
typedef struct _MI_SubscriptionDeliveryOptions MI_SubscriptionDeliveryOptions;
struct _MI_HostedProvider;
typedef struct _MI_HostedProvider MI_HostedProvider;
struct _MI_Serializer;
typedef struct _MI_Serializer MI_Serializer;
struct _MI_Deserializer;
typedef struct _MI_Deserializer MI_Deserializer;
struct _MI_Module;
typedef struct _MI_Module MI_Module;
struct _MI_Server;
typedef struct _MI_Server MI_Server;
typedef MI_Module*(MI_MAIN_CALL* MI_MainFunction)(MI_Server* server);

typedef enum _MI_SubscriptionDeliveryType
{
  MI_SubscriptionDeliveryType_Pull = 1,
  MI_SubscriptionDeliveryType_Push = 2
} MI_SubscriptionDeliveryType;

// Credentials.
#define MI_AUTH_TYPE_DEFAULT MI_T("Default")
#define MI_AUTH_TYPE_NONE MI_T("None")
#define MI_AUTH_TYPE_DIGEST MI_T("Digest")
#define MI_AUTH_TYPE_NEGO_WITH_CREDS MI_T("NegoWithCreds")
#define MI_AUTH_TYPE_NEGO_NO_CREDS MI_T("NegoNoCreds")
#define MI_AUTH_TYPE_BASIC MI_T("Basic")
#define MI_AUTH_TYPE_KERBEROS MI_T("Kerberos")
#define MI_AUTH_TYPE_CLIENT_CERTS MI_T("ClientCerts")
#define MI_AUTH_TYPE_NTLM MI_T("NtlmDomain")
#define MI_AUTH_TYPE_CREDSSP MI_T("CredSSP")
#define MI_AUTH_TYPE_ISSUER_CERT MI_T("IssuerCert")

typedef struct _MI_UsernamePasswordCreds
{
  const MI_Char* domain;
  const MI_Char* username;
  const MI_Char* password;
} MI_UsernamePasswordCreds;

typedef struct _MI_UserCredentials
{
  const MI_Char* authenticationType;
  union
  {
    MI_UsernamePasswordCreds usernamePassword;
    const MI_Char* certificateThumbprint;
  } credentials;
} MI_UserCredentials;

// Callbacks (asynchronous delivery; a null callbacks pointer makes an operation synchronous).
typedef enum _MI_WriteMessageChannel
{
  MI_WRITEMESSAGE_CHANNEL_WARNING = 0,
  MI_WRITEMESSAGE_CHANNEL_VERBOSE = 1,
  MI_WRITEMESSAGE_CHANNEL_DEBUG = 2
} MI_WriteMessageChannel;

typedef enum _MI_PromptType
{
  MI_PROMPTTYPE_NORMAL = 0,
  MI_PROMPTTYPE_CRITICAL = 1
} MI_PromptType;

typedef enum _MI_OperationCallback_ResponseType
{
  MI_OperationCallback_ResponseType_No = 0,
  MI_OperationCallback_ResponseType_Yes = 1,
  MI_OperationCallback_ResponseType_NoToAll = 2,
  MI_OperationCallback_ResponseType_YesToAll = 3
} MI_OperationCallback_ResponseType;

typedef struct _MI_SessionCallbacks
{
  void* callbackContext;
  void(MI_CALL* writeMessage)(MI_Application* application, void* callbackContext, MI_Uint32 channel,
                              const MI_Char* message);
  void(MI_CALL* writeError)(MI_Application* application, void* callbackContext, MI_Instance* instance);
} MI_SessionCallbacks;

typedef void(MI_CALL* MI_OperationCallback_Instance)(
    MI_Operation* operation, void* callbackContext, const MI_Instance* instance, MI_Boolean moreResults,
    MI_Result resultCode, const MI_Char* errorString, const MI_Instance* errorDetails,
    MI_Result(MI_CALL* resultAcknowledgement)(MI_Operation* operation));

typedef struct _MI_OperationCallbacks
{
  void* callbackContext;
  void(MI_CALL* promptUser)(MI_Operation* operation, void* callbackContext, const MI_Char* message,
                            MI_PromptType promptType,
                            MI_Result(MI_CALL* promptUserResult)(MI_Operation* operation,
                                                                 MI_OperationCallback_ResponseType response));
  void(MI_CALL* writeError)(MI_Operation* operation, void* callbackContext, MI_Instance* instance,
                            MI_Result(MI_CALL* writeErrorResult)(MI_Operation* operation,
                                                                 MI_OperationCallback_ResponseType response));
  void(MI_CALL* writeMessage)(MI_Operation* operation, void* callbackContext, MI_Uint32 channel,
                              const MI_Char* message);
  void(MI_CALL* writeProgress)(MI_Operation* operation, void* callbackContext, const MI_Char* activity,
                               const MI_Char* currentOperation, const MI_Char* statusDescription,
                               MI_Uint32 percentageComplete, MI_Uint32 secondsRemaining);
  MI_OperationCallback_Instance instanceResult;
  void* indicationResult;
  void* classResult;
  void* streamedParameterResult;
} MI_OperationCallbacks;

// Function tables.
typedef struct _MI_ApplicationFT
{
  MI_Result(MI_CALL* Close)(MI_Application* application);
  MI_Result(MI_CALL* NewSession)(MI_Application* application, const MI_Char* protocol, const MI_Char* destination,
                                 MI_DestinationOptions* options, MI_SessionCallbacks* callbacks,
                                 MI_Instance** extendedError, MI_Session* session);
  MI_Result(MI_CALL* NewHostedProvider)(MI_Application* application, const MI_Char* namespaceName,
                                        const MI_Char* providerName, MI_MainFunction mi_Main,
                                        MI_Instance** extendedError, MI_HostedProvider* provider);
  MI_Result(MI_CALL* NewInstance)(MI_Application* application, const MI_Char* className,
                                  const MI_ClassDecl* classRTTI, MI_Instance** instance);
  MI_Result(MI_CALL* NewDestinationOptions)(MI_Application* application, MI_DestinationOptions* options);
  MI_Result(MI_CALL* NewOperationOptions)(MI_Application* application, MI_Boolean customOptionsMustUnderstand,
                                          MI_OperationOptions* options);
  MI_Result(MI_CALL* NewSubscriptionDeliveryOptions)(MI_Application* application,
                                                     MI_SubscriptionDeliveryType deliveryType,
                                                     MI_SubscriptionDeliveryOptions* deliveryOptions);
  MI_Result(MI_CALL* NewSerializer)(MI_Application* application, MI_Uint32 flags, MI_Char* format,
                                    MI_Serializer* serializer);
  MI_Result(MI_CALL* NewDeserializer)(MI_Application* application, MI_Uint32 flags, MI_Char* format,
                                      MI_Deserializer* deserializer);
  MI_Result(MI_CALL* NewInstanceFromClass)(MI_Application* application, const MI_Char* className,
                                           const MI_Class* classObject, MI_Instance** instance);
  MI_Result(MI_CALL* NewClass)(MI_Application* application, const MI_ClassDecl* classDecl,
                               const MI_Char* namespaceName, const MI_Char* serverName, MI_Class** classObject);
} MI_ApplicationFT;

struct _MI_Application
{
  MI_Uint64 reserved1;
  ptrdiff_t reserved2;
  const MI_ApplicationFT* ft;
};

typedef struct _MI_DestinationOptionsFT
{
  void(MI_CALL* Delete)(MI_DestinationOptions* options);
  MI_Result(MI_CALL* SetString)(MI_DestinationOptions* options, const MI_Char* optionName, const MI_Char* value,
                                MI_Uint32 flags);
  MI_Result(MI_CALL* SetNumber)(MI_DestinationOptions* options, const MI_Char* optionName, MI_Uint32 value,
                                MI_Uint32 flags);
  MI_Result(MI_CALL* AddCredentials)(MI_DestinationOptions* options, const MI_Char* optionName,
                                     const MI_UserCredentials* credentials, MI_Uint32 flags);
  MI_Result(MI_CALL* GetString)(MI_DestinationOptions* options, const MI_Char* optionName, const MI_Char** value,
                                MI_Uint32* index, MI_Uint32* flags);
  MI_Result(MI_CALL* GetNumber)(MI_DestinationOptions* options, const MI_Char* optionName, MI_Uint32* value,
                                MI_Uint32* index, MI_Uint32* flags);
  MI_Result(MI_CALL* GetOptionCount)(MI_DestinationOptions* options, MI_Uint32* count);
  MI_Result(MI_CALL* GetOptionAt)(MI_DestinationOptions* options, MI_Uint32 index, const MI_Char** optionName,
                                  MI_Value* value, MI_Type* type, MI_Uint32* flags);
  MI_Result(MI_CALL* GetOption)(MI_DestinationOptions* options, const MI_Char* optionName, MI_Value* value,
                                MI_Type* type, MI_Uint32* index, MI_Uint32* flags);
  MI_Result(MI_CALL* GetCredentialsCount)(MI_DestinationOptions* options, MI_Uint32* count);
  MI_Result(MI_CALL* GetCredentialsAt)(MI_DestinationOptions* options, MI_Uint32 index, const MI_Char** optionName,
                                       MI_UserCredentials* credentials, MI_Uint32* flags);
  MI_Result(MI_CALL* GetCredentialsPasswordAt)(MI_DestinationOptions* options, MI_Uint32 index,
                                               const MI_Char** optionName, MI_Char* password,
                                               MI_Uint32 bufferLength, MI_Uint32* passwordLength,
                                               MI_Uint32* flags);
  MI_Result(MI_CALL* Clone)(const MI_DestinationOptions* self, MI_DestinationOptions* newDestinationOptions);
  MI_Result(MI_CALL* SetInterval)(MI_DestinationOptions* options, const MI_Char* optionName,
                                  const MI_Interval* value, MI_Uint32 flags);
  MI_Result(MI_CALL* GetInterval)(MI_DestinationOptions* options, const MI_Char* optionName, MI_Interval* value,
                                  MI_Uint32* index, MI_Uint32* flags);
} MI_DestinationOptionsFT;

struct _MI_DestinationOptions
{
  MI_Uint64 reserved1;
  ptrdiff_t reserved2;
  const MI_DestinationOptionsFT* ft;
};

struct _MI_OperationOptions
{
  MI_Uint64 reserved1;
  ptrdiff_t reserved2;
  const void* ft;
};

typedef struct _MI_SessionFT
{
  MI_Result(MI_CALL* Close)(MI_Session* session, void* completionContext,
                            void(MI_CALL* completionCallback)(void* completionContext));
  MI_Result(MI_CALL* GetApplication)(MI_Session* session, MI_Application* application);
  void(MI_CALL* GetInstance)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                             const MI_Char* namespaceName, const MI_Instance* inboundInstance,
                             MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* ModifyInstance)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                const MI_Char* namespaceName, const MI_Instance* inboundInstance,
                                MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* CreateInstance)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                const MI_Char* namespaceName, const MI_Instance* inboundInstance,
                                MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* DeleteInstance)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                const MI_Char* namespaceName, const MI_Instance* inboundInstance,
                                MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* Invoke)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                        const MI_Char* namespaceName, const MI_Char* className, const MI_Char* methodName,
                        const MI_Instance* inboundInstance, const MI_Instance* inboundProperties,
                        MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* EnumerateInstances)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                    const MI_Char* namespaceName, const MI_Char* className, MI_Boolean keysOnly,
                                    MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* QueryInstances)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                const MI_Char* namespaceName, const MI_Char* queryDialect,
                                const MI_Char* queryExpression, MI_OperationCallbacks* callbacks,
                                MI_Operation* operation);
  void(MI_CALL* AssociatorInstances)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                     const MI_Char* namespaceName, const MI_Instance* instanceKey,
                                     const MI_Char* assocClass, const MI_Char* resultClass, const MI_Char* role,
                                     const MI_Char* resultRole, MI_Boolean keysOnly,
                                     MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* ReferenceInstances)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                    const MI_Char* namespaceName, const MI_Instance* instanceKey,
                                    const MI_Char* resultClass, const MI_Char* role, MI_Boolean keysOnly,
                                    MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* Subscribe)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                           const MI_Char* namespaceName, const MI_Char* queryDialect,
                           const MI_Char* queryExpression, const MI_SubscriptionDeliveryOptions* deliverOptions,
                           MI_OperationCallbacks* callbacks, MI_Operation* operation);
  void(MI_CALL* GetClass)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                          const MI_Char* namespaceName, const MI_Char* className, MI_OperationCallbacks* callbacks,
                          MI_Operation* operation);
  void(MI_CALL* EnumerateClasses)(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                  const MI_Char* namespaceName, const MI_Char* className,
                                  MI_Boolean classNamesOnly, MI_OperationCallbacks* callbacks,
                                  MI_Operation* operation);
  void(MI_CALL* TestConnection)(MI_Session* session, MI_Uint32 flags, MI_OperationCallbacks* callbacks,
                                MI_Operation* operation);
} MI_SessionFT;

struct _MI_Session
{
  MI_Uint64 reserved1;
  ptrdiff_t reserved2;
  const MI_SessionFT* ft;
};

typedef struct _MI_OperationFT
{
  MI_Result(MI_CALL* Close)(MI_Operation* operation);
  MI_Result(MI_CALL* Cancel)(MI_Operation* operation, MI_CancellationReason reason);
  MI_Result(MI_CALL* GetSession)(MI_Operation* operation, MI_Session* session);
  MI_Result(MI_CALL* GetInstance)(MI_Operation* operation, const MI_Instance** instance, MI_Boolean* moreResults,
                                  MI_Result* result, const MI_Char** errorMessage,
                                  const MI_Instance** completionDetails);
  MI_Result(MI_CALL* GetIndication)(MI_Operation* operation, const MI_Instance** instance, const MI_Char** bookmark,
                                    const MI_Char** machineID, MI_Boolean* moreResults, MI_Result* result,
                                    const MI_Char** errorMessage, const MI_Instance** completionDetails);
  MI_Result(MI_CALL* GetClass)(MI_Operation* operation, const MI_Class** classResult, MI_Boolean* moreResults,
                               MI_Result* result, const MI_Char** errorMessage,
                               const MI_Instance** completionDetails);
} MI_OperationFT;

struct _MI_Operation
{
  MI_Uint64 reserved1;
  ptrdiff_t reserved2;
  const MI_OperationFT* ft;
};

#define MI_APPLICATION_NULL {0, 0, nullptr}
#define MI_SESSION_NULL {0, 0, nullptr}
#define MI_OPERATION_NULL {0, 0, nullptr}
#define MI_DESTINATIONOPTIONS_NULL {0, 0, nullptr}

// The one exported entry point: opens a client application context.
extern "C" MI_Result MI_MAIN_CALL MI_Application_InitializeV1(MI_Uint32 flags, const MI_Char* applicationID,
                                                              MI_Instance** extendedError,
                                                              MI_Application* application);
#define MI_Application_Initialize(flags, applicationID, extendedError, application) \
  MI_Application_InitializeV1((flags), (applicationID), (extendedError), (application))

// Inline wrappers: every call goes through the handle's function table; a handle whose table is
// null gives MI_RESULT_INVALID_PARAMETER (operations it would start come back closed).

MI_INLINE MI_Result MI_Application_Close(MI_Application* application)
{
  if (application && application->ft)
    return application->ft->Close(application);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Application_NewSession(MI_Application* application, const MI_Char* protocol,
                                              const MI_Char* destination, MI_DestinationOptions* options,
                                              MI_SessionCallbacks* callbacks, MI_Instance** extendedError,
                                              MI_Session* session)
{
  if (application && application->ft)
    return application->ft->NewSession(application, protocol, destination, options, callbacks, extendedError,
                                       session);
  if (session)
    *session = MI_Session MI_SESSION_NULL;
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Application_NewDestinationOptions(MI_Application* application,
                                                         MI_DestinationOptions* options)
{
  if (application && application->ft)
    return application->ft->NewDestinationOptions(application, options);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE void MI_DestinationOptions_Delete(MI_DestinationOptions* options)
{
  if (options && options->ft)
    options->ft->Delete(options);
}

MI_INLINE MI_Result MI_DestinationOptions_SetString(MI_DestinationOptions* options, const MI_Char* optionName,
                                                    const MI_Char* value)
{
  if (options && options->ft)
    return options->ft->SetString(options, optionName, value, 0);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_SetNumber(MI_DestinationOptions* options, const MI_Char* optionName,
                                                    MI_Uint32 value)
{
  if (options && options->ft)
    return options->ft->SetNumber(options, optionName, value, 0);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_GetNumber(MI_DestinationOptions* options, const MI_Char* optionName,
                                                    MI_Uint32* value, MI_Uint32* index, MI_Uint32* flags)
{
  if (options && options->ft)
    return options->ft->GetNumber(options, optionName, value, index, flags);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_SetPacketPrivacy(MI_DestinationOptions* options, MI_Boolean privacy)
{
  return MI_DestinationOptions_SetNumber(options, MI_T("__MI_DESTINATIONOPTIONS_PACKET_PRIVACY"), privacy);
}

MI_INLINE MI_Result MI_DestinationOptions_AddDestinationCredentials(MI_DestinationOptions* options,
                                                                    const MI_UserCredentials* credentials)
{
  if (options && options->ft)
    return options->ft->AddCredentials(options, MI_T("__MI_DESTINATIONOPTIONS_DESTINATION_CREDENTIALS"),
                                       credentials, 0);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_AddProxyCredentials(MI_DestinationOptions* options,
                                                              const MI_UserCredentials* credentials)
{
  if (options && options->ft)
    return options->ft->AddCredentials(options, MI_T("__MI_DESTINATIONOPTIONS_PROXY_CREDENTIALS"), credentials,
                                       0);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_GetCredentialsCount(MI_DestinationOptions* options, MI_Uint32* count)
{
  if (options && options->ft)
    return options->ft->GetCredentialsCount(options, count);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_DestinationOptions_GetCredentialsAt(MI_DestinationOptions* options, MI_Uint32 index,
                                                           const MI_Char** optionName,
                                                           MI_UserCredentials* credentials, MI_Uint32* flags)
{
  if (options && options->ft)
    return options->ft->GetCredentialsAt(options, index, optionName, credentials, flags);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Session_Close(MI_Session* session, void* completionContext,
                                     void(MI_CALL* completionCallback)(void* completionContext))
{
  if (session && session->ft)
    return session->ft->Close(session, completionContext, completionCallback);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Session_GetApplication(MI_Session* session, MI_Application* application)
{
  if (session && session->ft)
    return session->ft->GetApplication(session, application);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE void MI_Session_QueryInstances(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                         const MI_Char* namespaceName, const MI_Char* queryDialect,
                                         const MI_Char* queryExpression, MI_OperationCallbacks* callbacks,
                                         MI_Operation* operation)
{
  if (session && session->ft)
    session->ft->QueryInstances(session, flags, options, namespaceName, queryDialect, queryExpression, callbacks,
                                operation);
  else if (operation)
    *operation = MI_Operation MI_OPERATION_NULL;
}

MI_INLINE void MI_Session_EnumerateInstances(MI_Session* session, MI_Uint32 flags, MI_OperationOptions* options,
                                             const MI_Char* namespaceName, const MI_Char* className,
                                             MI_Boolean keysOnly, MI_OperationCallbacks* callbacks,
                                             MI_Operation* operation)
{
  if (session && session->ft)
    session->ft->EnumerateInstances(session, flags, options, namespaceName, className, keysOnly, callbacks,
                                    operation);
  else if (operation)
    *operation = MI_Operation MI_OPERATION_NULL;
}

MI_INLINE void MI_Session_TestConnection(MI_Session* session, MI_Uint32 flags, MI_OperationCallbacks* callbacks,
                                         MI_Operation* operation)
{
  if (session && session->ft)
    session->ft->TestConnection(session, flags, callbacks, operation);
  else if (operation)
    *operation = MI_Operation MI_OPERATION_NULL;
}

MI_INLINE MI_Result MI_Operation_GetInstance(MI_Operation* operation, const MI_Instance** instance,
                                             MI_Boolean* moreResults, MI_Result* result,
                                             const MI_Char** errorMessage, const MI_Instance** completionDetails)
{
  if (operation && operation->ft)
    return operation->ft->GetInstance(operation, instance, moreResults, result, errorMessage, completionDetails);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Operation_Cancel(MI_Operation* operation, MI_CancellationReason reason)
{
  if (operation && operation->ft)
    return operation->ft->Cancel(operation, reason);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Operation_Close(MI_Operation* operation)
{
  if (operation && operation->ft)
    return operation->ft->Close(operation);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Operation_GetSession(MI_Operation* operation, MI_Session* session)
{
  if (operation && operation->ft)
    return operation->ft->GetSession(operation, session);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_Clone(const MI_Instance* self, MI_Instance** newInstance)
{
  if (self && self->ft)
    return self->ft->Clone(self, newInstance);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_Delete(MI_Instance* self)
{
  if (self && self->ft)
    return self->ft->Delete(self);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetClassName(const MI_Instance* self, const MI_Char** className)
{
  if (self && self->ft)
    return self->ft->GetClassName(self, className);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetNameSpace(const MI_Instance* self, const MI_Char** nameSpace)
{
  if (self && self->ft)
    return self->ft->GetNameSpace(self, nameSpace);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetServerName(const MI_Instance* self, const MI_Char** serverName)
{
  if (self && self->ft)
    return self->ft->GetServerName(self, serverName);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetElementCount(const MI_Instance* self, MI_Uint32* count)
{
  if (self && self->ft)
    return self->ft->GetElementCount(self, count);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetElement(const MI_Instance* self, const MI_Char* name, MI_Value* value,
                                           MI_Type* type, MI_Uint32* flags, MI_Uint32* index)
{
  if (self && self->ft)
    return self->ft->GetElement(self, name, value, type, flags, index);
  return MI_RESULT_INVALID_PARAMETER;
}

MI_INLINE MI_Result MI_Instance_GetElementAt(const MI_Instance* self, MI_Uint32 index, const MI_Char** name,
                                             MI_Value* value, MI_Type* type, MI_Uint32* flags)
{
  if (self && self->ft)
    return self->ft->GetElementAt(self, index, name, value, type, flags);
  return MI_RESULT_INVALID_PARAMETER;
}
// NOLINTEND(bugprone-reserved-identifier)
