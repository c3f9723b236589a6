// SPDX-License-Identifier: Apache-2.0
// A plug-in of clang-tidy that keeps it out of system headers.
//
// clang-tidy 14 looks for what its checks match in all declarations of a source, then leaves out what it found in
// system headers: most of its time goes into Boost and the standard library. This check has it look at the other
// declarations only. What is found in ours is the same: nothing that a check matches lies in two top-level
// declarations.
#include <clang-tidy/ClangTidyCheck.h>
#include <clang-tidy/ClangTidyModule.h>
#include <clang-tidy/ClangTidyModuleRegistry.h>
#include <clang/AST/ASTContext.h>
#include <clang/ASTMatchers/ASTMatchFinder.h>

#include <vector>

namespace {

class OwnCodeOnlyCheck : public clang::tidy::ClangTidyCheck {
public:
    using ClangTidyCheck::ClangTidyCheck;

    void registerMatchers(clang::ast_matchers::MatchFinder* finder) override {
        finder->addMatcher(clang::ast_matchers::translationUnitDecl(), this);
    }

    // The unit is matched before what is in it, and only then its scope is looked up.
    void check(const clang::ast_matchers::MatchFinder::MatchResult& result) override {
        std::vector<clang::Decl*> own;
        for (auto* const decl : result.Context->getTranslationUnitDecl()->decls()) {
            if (!result.SourceManager->isInSystemHeader(decl->getLocation())) {
                own.push_back(decl);
            }
        }
        result.Context->setTraversalScope(own);
    }
};

class OwnCodeOnlyModule : public clang::tidy::ClangTidyModule {
public:
    void addCheckFactories(clang::tidy::ClangTidyCheckFactories& factories) override {
        factories.registerCheck<OwnCodeOnlyCheck>("cloudprovider-own-code-only");
    }
};

const clang::tidy::ClangTidyModuleRegistry::Add<OwnCodeOnlyModule> added("cloudprovider", "Speeds clang-tidy up.");

}  // namespace
