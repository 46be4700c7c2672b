#pragma once
// The Java host of expressions (javaexprhost.cpp), installed by JNI_OnLoad.
namespace qvarray {

/// Makes the Java host the process's expression host.
void installJavaExprHost();

}  // namespace qvarray
