# The public headers, by the library that they belong to. They are included by these paths everywhere.
set(QBDKR_COMM_HEADERS
  Platform/Base/Export.h
  Platform/Base/ForkSafeMutex.h
  Platform/Base/Status.h
  Platform/Bundles/Bundle.h
  Platform/Defaults/UserDefaults.h
  Platform/Events/AppleEvents/AppleEvent.h
  Platform/Events/RPCEvent.h
  Platform/Events/RPCTransport.h
  Platform/Files/FileLock.h
  Platform/Files/FileTree.h
  Platform/Files/Files.h
  Platform/Log/Log.h
  Platform/Loop/RunLoop.h
  Platform/Processes/ProcessTable.h
  Platform/PropertyLists/FileRewrite.h
  Platform/PropertyLists/PropertyList.h
  Platform/Text/Text.h
  Platform/Workspace/Workspace.h
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
  ClientComm/TextValue.h
)
set(QBDKR_CLIENT_HEADERS
  ProductClient/QBHPHelper.h
  ProductClient/QBHPHelperCommunicate.h
)

# Where they are installed. A framework carries its own; who does not use modules needs one folder with
# the headers of both.
set(QBDKR_INSTALL_HEADERS ${CMAKE_INSTALL_INCLUDEDIR}/QBDKRProductClient)
