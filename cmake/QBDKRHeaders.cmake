# The public headers, by the library that they belong to. They are included by these paths everywhere.
set(QBDKR_COMM_HEADERS
  Platform/AppleEvent.h
  Platform/Bundle.h
  Platform/Export.h
  Platform/FileLock.h
  Platform/FileRewrite.h
  Platform/FileTree.h
  Platform/Files.h
  Platform/ForkSafeMutex.h
  Platform/Log.h
  Platform/ProcessTable.h
  Platform/PropertyList.h
  Platform/RPCEvent.h
  Platform/RPCTransport.h
  Platform/RunLoop.h
  Platform/Status.h
  Platform/Text.h
  Platform/UserDefaults.h
  Platform/Workspace.h
  ClientComm/ClassRegistry.h
  ClientComm/Exceptions.h
  ClientComm/QBHPAppEventBase.h
  ClientComm/QBHPAppleEventProcesser.h
  ClientComm/QBHPAppleEventSender.h
  ClientComm/QBHPConfig.h
  ClientComm/QBHPCustomerServiceByHelepr.h
  ClientComm/QBHPGetDataByHelper.h
  ClientComm/QBHPHelperControl.h
  ClientComm/QBHPHelperError.h
  ClientComm/QBHPProcessList.h
  ClientComm/QBHPSuiteInfo.h
  ClientComm/QBHPUpgradeByHelper.h
  ClientComm/QBHPUploadByHelper.h
  ClientComm/QBHPVersion.h
  ClientComm/Selector.h
  ClientComm/Text.h
)
set(QBDKR_CLIENT_HEADERS
  ProductClient/QBHPHelper.h
  ProductClient/QBHPHelperCommunicate.h
)

# Where they are installed. A framework carries its own; who does not use modules needs one folder with
# the headers of both.
set(QBDKR_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/QBDKRProductClient)
