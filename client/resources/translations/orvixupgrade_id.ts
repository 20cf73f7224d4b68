<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="id" sourcelanguage="en">
<context>
    <name>ConnectPage</name>
    <message>
        <source>Please enter the connection code to connect the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The connection code is shown on the large screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start Connect</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirror Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Expand Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Window Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>File Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>disconnect</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DetailsExpansionWindow</name>
    <message>
        <source>Details</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check that the PC and the screen are on the same network, then try again. If it keeps failing, send this code to your administrator.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DynamicWindow</name>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ExceptionCallBack</name>
    <message>
        <source>Failed to turn on reverse control,</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> is controlling the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on reverse control, the screen only for displaying</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>OrvixUpgrade</name>
    <message>
        <source>Cast your screen to a display panel</source>
        <translation>Transmisikan layar Anda ke panel layar</translation>
    </message>
    <message>
        <source>Screen Mirroring</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connect Code</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Virtual display in use</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>PopupWindow</name>
    <message>
        <source>Cancel</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ScreenPage</name>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Start Screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Stop Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>SharePage</name>
    <message>
        <source>Please enter the connection code to show the screen here</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>TipWindows</name>
    <message>
        <source>ShowDetails</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ConnectPage</name>
    <message>
        <source>inPut Connected Code</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passcode server not configured,please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>virtual PC do not support Extend screen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::DetailsExpansionWindow</name>
    <message>
        <source>Error code: %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ManageErrorCode</name>
    <message>
        <source>Failed to connect to the screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Request denied,please check the screen permission settings</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Big screen version is too low, please upgrade and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please quit application and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse screen abnormal,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Passcode input error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Get infomation from passcode server fail, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You have been removed from the screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on sound mirroring screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Failed to turn on reverse control,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The current screen can only be mirroring screen at 1080P resolution</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mirroring screen abnormal,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Fast screen mirroring fail,please try again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The number of screens exceeds the limit. Please exit other screens first</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The number of reverse screens exceeds the limit. Please exit other reverse screens first</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Screen mirroring ended</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse screen mirroring ended</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Mouse screen error</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The mouse cannot be displayed on the large screen,please try again</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ModelButton</name>
    <message>
        <source>ExtendedMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>WindowMode</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>CopyMode</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::OrvixUpgrade</name>
    <message>
        <source>Nearby screens: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Show main window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Exit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>virtual PC network isolation </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Resolution changes</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The client resolution has been modified and will be re displayed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bit rate: %1 kbps</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Frame rate: %1 fps</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Delay: %1 ms</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Packet loss</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No packet loss</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Bit stream exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No bit stream for a long time</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Connection exception with server</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reconnecting failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reconnecting</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Reverse Control Invaild</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Net Exception</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>There is no network at present, please check and try again</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::PopupWindow</name>
    <message>
        <source>Waiting for permission</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen has to allow this PC first. Please confirm on the screen.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The screen is asking its user to accept the request. Please wait.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>qorquicomponents::ScreenPage</name>
    <message>
        <source>Pause</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Sound</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Touch Control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Switch Window</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Please enter the connection code to cast screen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>SCreening .</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Continue</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Window is protected by authority, so can not be casted when it is minimized</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
