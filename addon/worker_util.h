// Pieces shared by the workers and handlers of the binding.
#ifndef TARNTERMCHART_WORKER_UTIL_H
#define TARNTERMCHART_WORKER_UTIL_H

#include <napi.h>

#include <initializer_list>
#include <string>

// "Received bad result: \"<result>\"." - the error text of every failing call.
std::string BadResult(const std::string &result);
std::string BadResult(int result);

// Checks the exact argument count, then each argument's type in order (a
// string holding a NUL character is not a string here); on a mismatch
// throws the TypeError as a pending JavaScript exception and returns false.
bool CheckArguments(const Napi::CallbackInfo &info, std::initializer_list<napi_valuetype> types);

// The owned UTF-8 copy of a string argument.
inline std::string StringArg(const Napi::CallbackInfo &info, size_t i)
{
    return info[i].As<Napi::String>().Utf8Value();
}

// What decided a failed call: the library's number, or for the validity
// check its message.
struct Failure {
    const char *operation;  // the JavaScript name, "merge"
    bool isText = false;
    int result = 0;
    std::string text;

    explicit Failure(const char *operation) : operation(operation) {}
    void Set(int value) { isText = false, result = value; }
    void Set(std::string value) { isText = true, text = std::move(value); }
};

// Gives a failure's error the properties a caller tells failures apart by:
// operation, result (the library's number or message) and code (a stable
// string, from the function the package registers; none before).
void DescribeFailure(Napi::Env env, const Napi::Error &error, const Failure &failure);

// A worker that calls back (undefined, undefined) on success and
// (error, undefined) on failure.
class PlainWorker : public Napi::AsyncWorker {
public:
    PlainWorker(const Napi::Function &callback, const char *operation)
        : Napi::AsyncWorker(callback), failure(operation) {}

protected:
    // Sets the error text unless the library's result is 0.
    void Judge(int result)
    {
        if (result == 0) return;
        failure.Set(result);
        SetError(BadResult(result));
    }
    void OnOK() override;
    void OnError(const Napi::Error &error) override;

    Failure failure;
};

#endif
