// A host that runs Python: `embed_example 'return a + 1'` prints 42.
#include <brimora/embed.h>

#include <iostream>

int main(int argc, char** argv) {
    brimora::Python python = brimora::Python::start(); // loads the extension, runs the init handlers
    brimora::Scope scope = brimora::Scope().local("a", tesk::Integer(41));
    brimora::Outcome result = python.evaluate(argc > 1 ? argv[1] : "return a + 1", scope);
    if (!result) {
        std::cerr << "error: " << result.message() << " (line " << result.line().value_or(0) << ")\n";
        return 1;
    }
    std::cout << python.to_code(result.value()).asChars() << '\n';
    return 0;
}
